#pragma once
// Triangle geometry in object space, as the renderer traces it: one vertex
// per distinct corner (position, and normal and UV when the source has
// them) and three indices per triangle.
#include <cstdint>
#include <string>
#include <vector>

#include "framework/host/math.h"

struct TtriangleMesh {
    std::vector<T3Float> positions;
    std::vector<T3Float> normals;  // empty, or one per position
    std::vector<T2Float> uvs;      // empty, or one per position
    std::vector<uint32_t> indices;

    unsigned triangleCount() const { return unsigned(indices.size() / 3); }
    bool hasNormals() const { return !normals.empty(); }
    bool hasUvs() const { return !uvs.empty(); }
    // Area-weighted vertex normals, for a mesh read without normals that
    // should still look smooth. Corners split for UVs are joined by position.
    void computeSmoothNormals();

    static TtriangleMesh sPlane(float width, float height);
    static TtriangleMesh sBox(const T3Float& size);
};

// Reads an OBJ file. On failure returns false and puts in `error` a message
// that names the file and, for what is wrong inside it, the line. A face too
// intricate to split exactly within a bounded time is split as a fan, with a
// warning through the command engine.
bool loadObjMesh(const std::string& path, TtriangleMesh& mesh, std::string& error);
