// Refined meshes for tests: grids and tori with random heights, colours and windings.
#pragma once

#include "refined/RMesh.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <random>
#include <set>
#include <vector>

namespace test
{

struct Shape
{
    std::vector<MIRT_ZAV::Point3> points;
    std::vector<std::array<int, 3>> triangles;
};

using RMeshPtr = std::unique_ptr<MIRT_ZAV::RMesh>;

/// The mesh of a shape with cells of side 1; vertices in the order of addresses.
inline RMeshPtr makeMesh(const Shape& shape, std::vector<MIRT_ZAV::Point3*>& vertices)
{
    auto mesh = std::make_unique<MIRT_ZAV::RMesh>(1.0);
    vertices.clear();
    for (const MIRT_ZAV::Point3& p : shape.points)
        vertices.push_back(mesh->createVertex(p));
    for (const auto& [a, b, c] : shape.triangles)
        mesh->createT(vertices[size_t(a)], vertices[size_t(b)], vertices[size_t(c)]);
    return mesh;
}

/// Two triangles for every cell of an m by n grid; closed to a torus if asked for. Vertex (i, j) is number i * n + j.
///
///     (i, j+1) --- (i+1, j+1)
///        |       /     |
///        |    /        |
///      (i, j) ---- (i+1, j)
inline Shape makeCells(int m, int n, bool bClosed, const std::vector<MIRT_ZAV::Point3>& points)
{
    Shape shape{points, {}};
    for (int i = 0; i + (bClosed ? 0 : 1) < m; ++i)
        for (int j = 0; j + (bClosed ? 0 : 1) < n; ++j)
        {
            const int i1 = (i + 1) % m, j1 = (j + 1) % n;
            shape.triangles.push_back({i * n + j, i1 * n + j, i1 * n + j1});
            shape.triangles.push_back({i * n + j, i1 * n + j1, i * n + j1});
        }
    return shape;
}

inline Shape makeGrid(int m, int n, double roughness, std::mt19937& random)
{
    std::uniform_real_distribution<double> shift(-roughness, roughness);
    std::vector<MIRT_ZAV::Point3> points;
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j)
            points.emplace_back(i + 0.4 * shift(random), j + 0.4 * shift(random), shift(random));
    return makeCells(m, n, false, points);
}

inline Shape makeTorus(int m, int n, double roughness, std::mt19937& random)
{
    std::uniform_real_distribution<double> shift(-roughness, roughness);
    std::vector<MIRT_ZAV::Point3> points;
    for (int i = 0; i < m; ++i)
        for (int j = 0; j < n; ++j)
        {
            const double u = 2 * M_PI * i / m, v = 2 * M_PI * j / n;
            const double r = n / 6.0 + shift(random), R = m / 6.0 + n / 6.0;
            points.emplace_back((R + r * std::cos(v)) * std::cos(u), (R + r * std::cos(v)) * std::sin(u),
                                r * std::sin(v) + shift(random));
        }
    return makeCells(m, n, true, points);
}

inline void turnSomeTriangles(Shape& shape, std::mt19937& random)
{
    for (auto& triangle : shape.triangles)
        if (random() % 3 == 0)
            std::swap(triangle[0], triangle[1]);
}

/// What operations on meshes have to cope with: tori (kinds 0 to 2), then grids; smooth, rough and flat ones, with
/// colours (1, 5), stray triangles (4, 8), coincident vertices (6), places out of bounds (7) and mixed windings (8).
/// The folds of kind 9 are all alike: gains and penalties are equal, and which edge comes first is up to the order.
inline RMeshPtr makeKind(int kind, std::vector<MIRT_ZAV::Point3*>& v)
{
    std::mt19937 random(static_cast<unsigned>(kind));
    Shape shape = kind < 3 ? makeTorus(36, 24, 0.3 * kind, random) : makeGrid(34, 30, kind % 3 * 0.2, random);
    for (MIRT_ZAV::Point3& p : shape.points)
        if (kind == 1 || kind == 5)
        {
            p.setColor(100, static_cast<unsigned char>(p.x() > 3 ? 100 + random() % 2 : 60), 90, 255);
            p.setHasColor(random() % 3 != 0); // the bytes count all the same
        }
        else if (kind == 6 && random() % 60 == 0)
            p = shape.points[random() % shape.points.size()];
        else if (kind == 7 && random() % 60 == 0)
            p.set(random() % 2 == 0 ? NAN : HUGE_VAL, 1e200, 0.0);
    if (kind == 9)
        for (size_t i = 0; i < shape.points.size(); ++i)
            shape.points[i].set(double(i / 30), double(i % 30), i / 30 % 4 * 0.5);
    if (kind == 4 || kind == 8)
        for (size_t i = 0; i < 30; ++i)
            shape.triangles[random() % shape.triangles.size()] = {int(i), int(i + 97), int(i + 50 + random() % 40)};
    if (kind == 8)
        turnSomeTriangles(shape, random);
    return makeMesh(shape, v);
}
constexpr int numKinds = 10;

/// Triangles as numbers of vertices, sorted, to compare meshes.
inline std::multiset<std::array<size_t, 3>> getTriangles(const MIRT_ZAV::RMesh& mesh)
{
    std::multiset<std::array<size_t, 3>> triangles;
    for (const MIRT_ZAV::RTriangle* const pRT : mesh.vRT)
        if (pRT->isAlive())
        {
            std::array<size_t, 3> t{};
            std::transform(pRT->pVtx, pRT->pVtx + 3, t.begin(), [&](auto p) { return mesh.mmVtxT.indexOf(p); });
            std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
            triangles.insert(t);
        }
    return triangles;
}

} // namespace test
