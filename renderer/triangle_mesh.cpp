#include "renderer/triangle_mesh.h"

#include <cmath>
#include <filesystem>
#include <map>
#include <tuple>

#define TINYOBJLOADER_IMPLEMENTATION
#include <tiny_obj_loader.h>

void TtriangleMesh::computeSmoothNormals() {
    // Corners are joined by exact position so that a seam in the UVs does not
    // show as a crease in the shading.
    std::map<std::tuple<float, float, float>, unsigned> byPosition;
    std::vector<unsigned> group(positions.size());
    for (size_t i = 0; i < positions.size(); ++i) {
        const T3Float& p = positions[i];
        group[i] = byPosition.emplace(std::make_tuple(p.x, p.y, p.z), unsigned(byPosition.size())).first->second;
    }
    std::vector<T3Float> sum(byPosition.size());
    for (size_t t = 0; t + 2 < indices.size(); t += 3) {
        const T3Float& a = positions[indices[t]];
        // The cross product's length is twice the area: an area weight.
        T3Float n = cross(positions[indices[t + 1]] - a, positions[indices[t + 2]] - a);
        for (int k = 0; k < 3; ++k) sum[group[indices[t + k]]] = sum[group[indices[t + k]]] + n;
    }
    normals.resize(positions.size());
    for (size_t i = 0; i < positions.size(); ++i) normals[i] = normalize(sum[group[i]]);
}

TtriangleMesh TtriangleMesh::sPlane(float width, float height) {
    TtriangleMesh m;
    float w = width / 2, h = height / 2;
    // u runs along +X and v along -Z, so the texture reads upright from above.
    m.positions = {{-w, 0, h}, {w, 0, h}, {w, 0, -h}, {-w, 0, -h}};
    m.normals.assign(4, T3Float(0, 1, 0));
    m.uvs = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    m.indices = {0, 1, 2, 0, 2, 3};
    return m;
}

TtriangleMesh TtriangleMesh::sBox(const T3Float& size) {
    TtriangleMesh m;
    T3Float h = size * 0.5f;
    // Each face: its normal and two edge axes (u, v) with u x v = normal.
    const T3Float faces[6][3] = {
        {{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}, {{-1, 0, 0}, {0, 0, 1}, {0, 1, 0}}, {{0, 1, 0}, {1, 0, 0}, {0, 0, -1}},
        {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}}, {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}},  {{0, 0, -1}, {-1, 0, 0}, {0, 1, 0}},
    };
    auto scaled = [&](const T3Float& v) { return T3Float(v.x * h.x, v.y * h.y, v.z * h.z); };
    for (const auto& f : faces) {
        uint32_t base = uint32_t(m.positions.size());
        const float corners[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
        for (const auto& c : corners) {
            m.positions.push_back(scaled(f[0] + f[1] * c[0] + f[2] * c[1]));
            m.normals.push_back(f[0]);
            m.uvs.push_back({(c[0] + 1) / 2, (c[1] + 1) / 2});
        }
        for (uint32_t i : {0u, 1u, 2u, 0u, 2u, 3u}) m.indices.push_back(base + i);
    }
    return m;
}

bool loadObjMesh(const std::string& path, TtriangleMesh& mesh, std::string& error) {
    mesh = TtriangleMesh();
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) {
        error = path + ": mesh file not found";
        return false;
    }
    tinyobj::ObjReaderConfig config;
    config.triangulate = true;
    config.vertex_color = false;
    config.mtl_search_path = std::filesystem::path(path).parent_path().string();
    tinyobj::ObjReader reader;
    if (!reader.ParseFromFile(path, config)) {
        error = path + ": cannot read mesh: " + (reader.Error().empty() ? std::string("unknown reason") : reader.Error());
        while (!error.empty() && error.back() == '\n') error.pop_back();
        return false;
    }
    const tinyobj::attrib_t& attrib = reader.GetAttrib();
    size_t positionCount = attrib.vertices.size() / 3;
    for (size_t i = 0; i < attrib.vertices.size(); ++i)
        if (!std::isfinite(attrib.vertices[i])) {
            error = path + ": vertex " + std::to_string(i / 3 + 1) + " has a coordinate that is not a finite number";
            return false;
        }
    size_t normalCount = attrib.normals.size() / 3;
    size_t uvCount = attrib.texcoords.size() / 2;

    // Normals and UVs are kept only when every corner has them: a mesh that
    // is half textured is treated as untextured rather than guessed at. A
    // normal of zero length or with a coordinate that is not finite counts
    // as none: it would shade its triangles black.
    auto usableNormal = [&](int i) {
        if (i < 0 || size_t(i) >= normalCount) return false;
        const float* n = &attrib.normals[3 * size_t(i)];
        const double lengthSquared = double(n[0]) * n[0] + double(n[1]) * n[1] + double(n[2]) * n[2];
        return std::isfinite(lengthSquared) && lengthSquared > 0;
    };
    bool allNormals = normalCount > 0, allUvs = uvCount > 0;
    size_t cornerCount = 0;
    for (const tinyobj::shape_t& shape : reader.GetShapes())
        for (const tinyobj::index_t& idx : shape.mesh.indices) {
            ++cornerCount;
            if (idx.vertex_index < 0 || size_t(idx.vertex_index) >= positionCount) {
                error = path + ": a face refers to vertex " + std::to_string(idx.vertex_index + 1) + " of " +
                        std::to_string(positionCount);
                return false;
            }
            if (!usableNormal(idx.normal_index)) allNormals = false;
            if (idx.texcoord_index < 0 || size_t(idx.texcoord_index) >= uvCount) allUvs = false;
        }
    if (cornerCount == 0) {
        error = path + ": the mesh has no faces";
        return false;
    }

    std::map<std::tuple<int, int, int>, uint32_t> corners;
    for (const tinyobj::shape_t& shape : reader.GetShapes())
        for (const tinyobj::index_t& idx : shape.mesh.indices) {
            auto key = std::make_tuple(idx.vertex_index, allNormals ? idx.normal_index : -1, allUvs ? idx.texcoord_index : -1);
            auto [it, added] = corners.emplace(key, uint32_t(mesh.positions.size()));
            if (added) {
                const float* p = &attrib.vertices[3 * size_t(idx.vertex_index)];
                mesh.positions.push_back({p[0], p[1], p[2]});
                if (allNormals) {
                    const float* n = &attrib.normals[3 * size_t(idx.normal_index)];
                    mesh.normals.push_back(normalize(T3Float(n[0], n[1], n[2])));
                }
                if (allUvs) {
                    const float* t = &attrib.texcoords[2 * size_t(idx.texcoord_index)];
                    mesh.uvs.push_back({t[0], t[1]});
                }
            }
            mesh.indices.push_back(it->second);
        }
    return true;
}
