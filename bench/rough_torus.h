// A large mesh to work on, for benchmarks of the finished mesh.
#pragma once

#include "refined/RMesh.h"
#include "zav/Mesh.h"

#include <cmath>
#include <memory>
#include <random>
#include <vector>

/// A torus of 2 m n triangles with a rough skin. m points go around its axis and n around its tube. Edges are about 1
/// long around the tube; around the axis, from 1 on the inner side to 1 + 2 n / m on the outer side.
inline MIRT_ZAV::MeshPtr makeRoughTorus(int m, int n)
{
    using namespace MIRT_ZAV;
    std::mt19937 random(1);
    std::uniform_real_distribution<double> shift(-0.2, 0.2);
    const size_t numVertices = static_cast<size_t>(m) * static_cast<size_t>(n);
    auto pRMesh = std::make_unique<RMesh>(1.0, numVertices, 2 * numVertices);
    std::vector<Point3*> v;
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j)
        {
            const double u = 2 * M_PI * i / m, w = 2 * M_PI * j / n;
            const double r = n / 6.0 + shift(random), R = m / 6.0 + n / 6.0;
            v.push_back(pRMesh->createVertex(
                Point3((R + r * std::cos(w)) * std::cos(u), (R + r * std::cos(w)) * std::sin(u), r * std::sin(w))));
        }
    const auto at = [&](int i, int j) { return v[static_cast<size_t>(i % m * n + j % n)]; };
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j)
        {
            pRMesh->createT(at(i, j), at(i + 1, j), at(i + 1, j + 1));
            pRMesh->createT(at(i, j), at(i + 1, j + 1), at(i, j + 1));
        }
    return std::make_shared<Mesh>(pRMesh.release());
}
