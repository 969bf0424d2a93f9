#include "renderer/triangle_mesh.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <string_view>
#include <tuple>

#include "framework/host/command_engine.h"
#include "renderer/polygon_split.h"

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

namespace {

// What a face corner names, each counted from 0: a position, and a texture
// coordinate and a normal or -1.
struct TobjCorner {
    int64_t position, uv, normal;
};

// The three lists a face corner numbers into.
enum TobjList { kPositions, kUvs, kNormals };
const char* const kListNames[] = {"vertex", "texture coordinate", "normal"};
const char* const kListPlurals[] = {"vertices", "texture coordinates", "normals"};

// An OBJ file read statement by statement: v, vt, vn and f; the rest (groups,
// materials, smoothing, lines) says nothing about the triangles and is
// passed over. Face numbers from 1 may name elements given further on, so
// they are checked once the file is read; numbers from -1 count back from
// the last element given before the face, so they are resolved there.
class TobjReader {
public:
    TobjReader(const std::string& path, std::string& error) : fPath(path), fError(error) {}

    bool read(const std::string& text) {
        std::string statement;
        size_t at = 0, line = 0;
        while (at < text.size()) {
            // A statement ends at a line end that no backslash continues.
            statement.clear();
            fLine = line + 1;
            for (;;) {
                size_t end = text.find('\n', at);
                if (end == std::string::npos) end = text.size();
                std::string_view part(text.data() + at, end - at);
                at = end + 1;
                ++line;
                if (const size_t hash = part.find('#'); hash != std::string_view::npos) part = part.substr(0, hash);
                while (!part.empty() && std::isspace(static_cast<unsigned char>(part.back()))) part.remove_suffix(1);
                const bool continued = !part.empty() && part.back() == '\\' && at < text.size();
                if (continued) part.remove_suffix(1);
                statement.append(part);
                if (!continued) break;
                statement += ' ';
            }
            if (!readStatement(statement)) return false;
        }
        for (int list = kPositions; list <= kNormals; ++list)
            if (fHighest[list].number > int64_t(count(list))) return badNumber(fHighest[list], list, count(list));
        return true;
    }

    std::vector<T3Float> positions, normals;
    std::vector<T2Float> uvs;
    std::vector<TobjCorner> corners;  // of every face, in order
    std::vector<uint32_t> faceSizes;
    std::vector<uint32_t> faceLines;

private:
    // A face number as written, where it was written.
    struct Tnumber {
        int64_t number = 0;  // the largest int64 for one past it
        std::string corner, written;
        size_t line = 0;
    };

    bool fail(const std::string& what) {
        fError = fPath + ":" + std::to_string(fLine) + ": " + what;
        return false;
    }
    size_t count(int list) const { return list == kPositions ? positions.size() : list == kUvs ? uvs.size() : normals.size(); }

    static std::string amount(size_t have, int list) {
        return std::to_string(have) + " " + (have == 1 ? kListNames[list] : kListPlurals[list]);
    }

    bool badNumber(const Tnumber& n, int list, size_t have) {
        fLine = n.line;
        const std::string all = std::to_string(have);
        return fail("face corner '" + n.corner + "' names " + kListNames[list] + " " + n.written + ", but " +
                    (have ? "the file has " + amount(have, list) +
                                (have == 1 ? std::string(": the only valid numbers are 1 and -1")
                                           : ": valid numbers are 1 to " + all + ", or -1 to -" + all + " counting back from the face")
                          : std::string("the file has no ") + kListPlurals[list]));
    }

    static std::vector<std::string_view> words(std::string_view text) {
        std::vector<std::string_view> out;
        size_t i = 0;
        while (i < text.size()) {
            while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
            const size_t start = i;
            while (i < text.size() && !std::isspace(static_cast<unsigned char>(text[i]))) ++i;
            if (i > start) out.push_back(text.substr(start, i - start));
        }
        return out;
    }

    // The numbers after the keyword: at least `least`, and every word one.
    bool numbers(const std::vector<std::string_view>& w, size_t least, const char* what, const char* form, double* out,
                 size_t most) {
        for (size_t k = 1; k < w.size(); ++k) {
            // Each word is followed by a space or the end of the statement,
            // where strtod stops.
            char* end = nullptr;
            const double v = std::strtod(w[k].data(), &end);
            if (end != w[k].data() + w[k].size())
                return fail("'" + std::string(w[k]) + "' is not a number; " + what + " is '" + form + "'");
            if (k <= most) out[k - 1] = v;
        }
        if (w.size() - 1 < least)
            return fail(std::string(what) + " takes " + std::to_string(least) + " numbers ('" + form + "'); this one has " +
                        std::to_string(w.size() - 1));
        return true;
    }

    bool readStatement(const std::string& statement) {
        const std::vector<std::string_view> w = words(statement);
        if (w.empty()) return true;
        double v[3] = {0, 0, 0};
        if (w[0] == "v") {
            if (!numbers(w, 3, "a vertex", "v x y z", v, 3)) return false;
            positions.push_back({float(v[0]), float(v[1]), float(v[2])});
            const T3Float& p = positions.back();
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
                return fail("vertex " + std::to_string(positions.size()) + " has a coordinate that is not a finite number");
        } else if (w[0] == "vt") {
            if (!numbers(w, 1, "a texture coordinate", "vt u v", v, 2)) return false;
            uvs.push_back({float(v[0]), float(v[1])});
        } else if (w[0] == "vn") {
            if (!numbers(w, 3, "a normal", "vn x y z", v, 3)) return false;
            normals.push_back({float(v[0]), float(v[1]), float(v[2])});
        } else if (w[0] == "f") {
            if (w.size() < 4) return fail("a face takes at least 3 corners; this one has " + std::to_string(w.size() - 1));
            for (size_t k = 1; k < w.size(); ++k) {
                TobjCorner c{-1, -1, -1};
                if (!corner(w[k], c)) return false;
                corners.push_back(c);
            }
            faceSizes.push_back(uint32_t(w.size() - 1));
            faceLines.push_back(uint32_t(fLine));
        }
        return true;
    }

    // "v", "v/vt", "v//vn" or "v/vt/vn".
    bool corner(std::string_view text, TobjCorner& c) {
        std::string_view parts[3];
        size_t n = 0, start = 0;
        for (size_t i = 0; i <= text.size(); ++i)
            if (i == text.size() || text[i] == '/') {
                if (n == 3) return fail("face corner '" + std::string(text) + "' is not v, v/vt, v//vn or v/vt/vn");
                parts[n++] = text.substr(start, i - start);
                start = i + 1;
            }
        int64_t* targets[3] = {&c.position, &c.uv, &c.normal};
        for (size_t k = 0; k < n; ++k) {
            if (parts[k].empty() && k > 0) continue;
            if (!index(text, parts[k], k, *targets[k])) return false;
        }
        return true;
    }

    bool index(std::string_view corner, std::string_view part, size_t list, int64_t& out) {
        int64_t number = 0;
        const auto [end, problem] = std::from_chars(part.data(), part.data() + part.size(), number);
        const bool whole = end == part.data() + part.size() && !part.empty();
        if (!whole || (problem != std::errc() && problem != std::errc::result_out_of_range))
            return fail("face corner '" + std::string(corner) + "': '" + std::string(part) + "' is not a whole number");
        const bool overflow = problem == std::errc::result_out_of_range;
        const size_t have = count(int(list));
        if (part[0] == '-') {
            // Counting back from the last one given so far.
            if (overflow || -number > int64_t(have)) {
                const std::string back = std::to_string(have);
                return fail("face corner '" + std::string(corner) + "' names " + kListNames[list] + " " + std::string(part) + ", but " +
                            (have ? "only " + amount(have, list) + (have == 1 ? " comes" : " come") +
                                        " before it: counting back reaches -1 to -" + back
                                  : std::string("no ") + kListPlurals[list] + " come before it"));
            }
            out = int64_t(have) + number;
            return true;
        }
        if (overflow) number = std::numeric_limits<int64_t>::max();
        if (number == 0)
            return fail("face corner '" + std::string(corner) + "' names " + kListNames[list] +
                        " 0; numbers start at 1, or at -1 counting back from the face");
        if (number > fHighest[list].number) fHighest[list] = {number, std::string(corner), std::string(part), fLine};
        out = number - 1;
        return true;
    }

    const std::string& fPath;
    std::string& fError;
    size_t fLine = 0;
    Tnumber fHighest[3];
};

}  // namespace

bool loadObjMesh(const std::string& path, TtriangleMesh& mesh, std::string& error) {
    mesh = TtriangleMesh();
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) {
        error = path + ": mesh file not found";
        return false;
    }
    std::string text;
    {
        std::ifstream in(path, std::ios::binary);
        text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        if (in.bad()) {
            error = path + ": cannot read mesh: " + std::strerror(errno);
            return false;
        }
    }
    TobjReader obj(path, error);
    if (!obj.read(text)) return false;
    if (obj.corners.empty()) {
        error = path + ": the mesh has no faces";
        return false;
    }

    // Normals and UVs are kept only when every corner has them: a mesh that
    // is half textured is treated as untextured rather than guessed at. A
    // normal of zero length or with a coordinate that is not finite counts
    // as none: it would shade its triangles black.
    auto usableNormal = [&](int64_t i) {
        if (i < 0) return false;
        const T3Float& n = obj.normals[size_t(i)];
        const double lengthSquared = double(n.x) * n.x + double(n.y) * n.y + double(n.z) * n.z;
        return std::isfinite(lengthSquared) && lengthSquared > 0;
    };
    bool allNormals = true, allUvs = true;
    for (const TobjCorner& c : obj.corners) {
        if (!usableNormal(c.normal)) allNormals = false;
        if (c.uv < 0) allUvs = false;
    }

    std::map<std::tuple<int64_t, int64_t, int64_t>, uint32_t> vertexOf;
    std::vector<uint32_t> cornerVertex(obj.corners.size());
    for (size_t k = 0; k < obj.corners.size(); ++k) {
        const TobjCorner& c = obj.corners[k];
        auto key = std::make_tuple(c.position, allNormals ? c.normal : -1, allUvs ? c.uv : -1);
        auto [it, added] = vertexOf.emplace(key, uint32_t(mesh.positions.size()));
        if (added) {
            mesh.positions.push_back(obj.positions[size_t(c.position)]);
            if (allNormals) mesh.normals.push_back(normalize(obj.normals[size_t(c.normal)]));
            if (allUvs) mesh.uvs.push_back(obj.uvs[size_t(c.uv)]);
        }
        cornerVertex[k] = it->second;
    }

    std::vector<T3Float> outline;
    std::vector<uint32_t> triangles;
    size_t first = 0;
    for (size_t f = 0; f < obj.faceSizes.size(); ++f) {
        const size_t n = obj.faceSizes[f];
        outline.resize(n);
        for (size_t k = 0; k < n; ++k) outline[k] = obj.positions[size_t(obj.corners[first + k].position)];
        triangles.clear();
        if (!splitPolygon(outline.data(), n, triangles))
            theCommandEngine().displayWarning(Tstring(path + ":" + std::to_string(obj.faceLines[f]) + ": a face of " +
                                                      std::to_string(n) +
                                                      " corners would take too long to split exactly; it is split as a "
                                                      "fan and may show wrong where it is concave"));
        for (uint32_t t : triangles) mesh.indices.push_back(cornerVertex[first + t]);
        first += n;
    }
    return true;
}
