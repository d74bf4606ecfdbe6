"""Reads what the tool writes by readers of its own: every format has to hold the same points and the same mesh.

Argument: the tool. Needs nothing but the standard library.
"""
import math
import os
import re
import struct
import subprocess
import sys
import tempfile


def read_ply(path):
    """Vertices as rows by property name, faces as tuples of indices."""
    with open(path, "rb") as file:
        data = file.read()
    header, body = data.split(b"end_header\n", 1)
    lines = header.decode("ascii").splitlines()
    assert lines[0] == "ply", lines[0]
    codes = {"float": "f", "double": "d", "uchar": "B", "uint": "I", "int": "i"}
    elements = []
    for words in (line.split() for line in lines[2:]):
        if words[0] == "element":
            elements.append((words[1], int(words[2]), []))
        elif words[0] == "property":
            elements[-1][2].append(words[1:])
    tokens, offset = (iter(body.split()), None) if "ascii" in lines[1] else (None, 0)

    def value(kind):
        nonlocal offset
        if tokens is not None:
            return (float if kind in ("float", "double") else int)(next(tokens))
        result = struct.unpack_from("<" + codes[kind], body, offset)[0]
        offset += struct.calcsize(codes[kind])
        return result

    rows = {name: [] for name, _, _ in elements}
    for name, size, properties in elements:
        for _ in range(size):
            row = {}
            for words in properties:
                if words[0] == "list":
                    row[words[3]] = tuple(value(words[2]) for _ in range(value(words[1])))
                else:
                    row[words[1]] = value(words[0])
            rows[name].append(row)
    assert offset in (None, len(body)) and (tokens is None or next(tokens, None) is None), path + ": bytes are left"
    points = [(row["x"], row["y"], row["z"]) for row in rows["vertex"]]
    return points, [row["vertex_indices"] for row in rows.get("face", [])]


def read_stl(path):
    with open(path) as file:
        text = file.read()
    facet = re.compile(r"facet normal (\S+) (\S+) (\S+)\n outer loop\n" + r"  vertex (\S+) (\S+) (\S+)\n" * 3 +
                       r" endloop\nendfacet\n")
    facets = [tuple(map(float, match.groups())) for match in facet.finditer(text)]
    assert facet.sub("", text) == "solid - ZAV\nendsolid - ZAV\n", path
    for f in facets:
        u, v = ([f[i + k] - f[3 + k] for k in range(3)] for i in (6, 9))
        normal = [u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]]
        length = math.hypot(*normal)
        assert length < 1e-9 or all(abs(n / length - m) < 1e-4 for n, m in zip(normal, f)), f
    return [(f[3:6], f[6:9], f[9:12]) for f in facets]


def read_obj(path):
    with open(path) as file:
        lines = [line.split() for line in file]
    points = [tuple(map(float, words[1:])) for words in lines if words[0] == "v"]
    return [tuple(points[int(i) - 1] for i in words[1:]) for words in lines if words[0] == "f"]


def read_list(path):
    """The triangles of the one OFF object, and the points of the first VECT object."""
    with open(path) as file:
        text = file.read()
    assert text.startswith("LIST\n{\n") and text.count("{") == text.count("}"), path
    triangles, points = [], []
    if "OFF\n" in text:
        lines = text.split("OFF\n", 1)[1].splitlines()
        num_vertices, num_faces, _ = map(int, lines[0].split())
        corners = [tuple(map(float, line.split()[:3])) for line in lines[1:num_vertices + 1]]
        faces = [line.split() for line in lines[num_vertices + 1:num_vertices + num_faces + 1]]
        triangles = [tuple(corners[int(i)] for i in words[1:4]) for words in faces]
    elif "VECT\n" in text:
        lines = text.split("VECT\n", 1)[1].splitlines()
        count = int(lines[0].split()[1])
        points = [tuple(map(float, line.split())) for line in lines[3:count + 3]]
    return triangles, points


def main(tool):
    run = lambda *arguments: subprocess.run([tool, *arguments], check=True, stdout=subprocess.DEVNULL)
    run("generate", "torus", "points.xyz", "--points", "3000")
    with open("points.xyz") as file:
        points = [tuple(map(float, line.split())) for line in file]
    assert len(points) == 3000
    for name, *options in (["p.ply"], ["t.ply", "--ascii"]):
        run("convert", "points.xyz", name, *options)
        assert read_ply(name) == (points, []), name
    run("convert", "points.xyz", "p.bin")
    with open("p.bin", "rb") as file:
        data = file.read()
    assert struct.unpack_from("<iQ", data) == (30, 3000)
    assert list(struct.iter_unpack("<3d", data[12:])) == points
    run("convert", "p.bin", "p.list")
    assert all(math.dist(p, q) < 1e-14 for p, q in zip(points, read_list("p.list")[1], strict=True))

    meshes = {}
    for name, *options in (["m.ply"], ["n.ply", "--ascii"], ["m.stl"], ["m.obj"], ["m.list"]):
        run("reconstruct", "points.xyz", name, "--holes", "3", *options)
        if name.endswith(".ply"):
            vertices, faces = read_ply(name)
            assert sorted(set(sum(faces, ()))) == list(range(len(vertices))), "vertices without use"
            meshes[name] = [tuple(vertices[i] for i in face) for face in faces]
        else:
            meshes[name] = {"stl": read_stl, "obj": read_obj, "list": lambda p: read_list(p)[0]}[name[2:]](name)
    assert len(meshes["m.stl"]) > 2000
    for name, triangles in meshes.items():  # in the same order, with the same first corner
        for t, u in zip(triangles, meshes["m.stl"], strict=True):
            assert all(math.dist(p, q) < 2e-5 for p, q in zip(t, u, strict=True)), (name, t, u)


if __name__ == "__main__":
    tool_path = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as directory:
        os.chdir(directory)
        main(tool_path)
