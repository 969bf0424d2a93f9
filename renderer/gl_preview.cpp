#include "renderer/gl_preview.h"

#define GL_GLEXT_PROTOTYPES
#include <GL/gl.h>
#include <GL/glext.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "display/material_values.h"
#include "display/tilable_texture_cache.h"
#include "framework/host/command_engine.h"
#include "framework/host/depend_graph.h"
#include "lights/light_link.h"
#include "lights/light_visibility.h"
#include "lights/point_light.h"
#include "lights/render_light.h"
#include "shading/shading_engine.h"
#include "textures/file_texture.h"

namespace {
constexpr int kMaxLights = 8;
constexpr int kSphereColumns = 96, kSphereRows = 48, kDiscSegments = 96;
// The side of a reflective object's cube map faces: the whole room folds
// into a ball a hundred-odd pixels wide, so more would not show.
constexpr unsigned kEnvironmentSize = 128;
constexpr float kIdentity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};

const char* kVertexShader = R"(#version 130
in vec3 position;
in vec3 normal;
in vec2 uv;
uniform mat4 projection;
uniform mat4 view;
uniform mat3 uvTransform;
out vec3 pointCamera;
out vec3 normalCamera;
out vec2 texCoord;
void main() {
    pointCamera = position;
    normalCamera = normal;
    texCoord = (uvTransform * vec3(uv, 1.0)).xy;
    gl_Position = projection * view * vec4(position, 1.0);
}
)";

// Lambert's sum (ambient lights by their shade weight, the others by the
// cosine times the material's diffuse), then a Blinn-Phong highlight, then
// the mirror term the render's specular materials add: reflectivity, times
// Blinn's view roll-off where it applies, times the specular colour, times
// what the environment map holds in the mirror direction. Everything is in
// the main camera's space; `eye` is where the picture is seen from (the
// camera, or a reflective object's centre while its map is drawn).
const char* kFragmentShader = R"(#version 130
in vec3 pointCamera;
in vec3 normalCamera;
in vec2 texCoord;
uniform int lightCount;
uniform int lightKind[8];
uniform vec3 lightColour[8];
uniform vec3 lightVector[8];
uniform float lightShade[8];
uniform vec3 diffuseColour;
uniform vec3 ambientColour;
uniform vec3 specularColour;
uniform vec3 emissionColour;
uniform vec3 textureGlow;
uniform float shininess;
uniform float alpha;
uniform bool textured;
uniform sampler2D colourMap;
uniform bool reflective;
uniform samplerCube environment;
uniform float reflectivity;
uniform float reflectionRollOff;
uniform vec3 eye;
uniform bool ids;
uniform float objectId;
out vec4 fragColour;
void main() {
    if (ids) { fragColour = vec4(objectId, 0.0, 0.0, 1.0); return; }
    vec3 n = normalize(normalCamera);
    vec3 toEye = normalize(eye - pointCamera);
    if (dot(n, toEye) < 0.0) n = -n;  // both sides of a surface are lit alike
    vec3 texel = textured ? texture(colourMap, texCoord).rgb : vec3(1.0);
    vec3 lit = vec3(0.0);
    vec3 highlight = vec3(0.0);
    for (int k = 0; k < lightCount; ++k) {
        vec3 l = lightKind[k] == 1 ? normalize(lightVector[k]) : normalize(lightVector[k] - pointCamera);
        float c = dot(n, l);
        if (lightKind[k] == 0) {
            lit += lightColour[k] * ambientColour * max(1.0 + lightShade[k] * (c - 1.0), 0.0);
            continue;
        }
        if (c <= 0.0) continue;
        lit += lightColour[k] * diffuseColour * c;
        if (shininess > 0.0)
            highlight += lightColour[k] * specularColour * pow(max(dot(n, normalize(l + toEye)), 0.0), shininess);
    }
    if (reflective) {
        float weight = reflectivity;
        if (reflectionRollOff >= 0.0) {
            float x = 1.0 - abs(dot(toEye, n));
            weight *= x * x * x + (1.0 - x * x * x) * reflectionRollOff;
        }
        highlight += weight * specularColour * texture(environment, reflect(-toEye, n)).rgb;
    }
    fragColour = vec4(texel * (lit * alpha + textureGlow) + highlight + emissionColour, alpha);
}
)";

struct Tvertex {
    float p[3], n[3], uv[2];
};

Tvertex vertex(const T3Float& p, const T3Float& n, const T2Float& uv) {
    return {{p.x, p.y, p.z}, {n.x, n.y, n.z}, {uv.x, uv.y}};
}

void sphere(float r, std::vector<Tvertex>& out) {
    // The render's parameterisation: u around y from +z, v from the south pole.
    auto at = [r](int i, int j) {
        float u = float(i) / kSphereColumns, v = float(j) / kSphereRows;
        float phi = (u - 0.5f) * 2 * float(M_PI), theta = (v - 0.5f) * float(M_PI);
        T3Float d{std::cos(theta) * std::sin(phi), std::sin(theta), std::cos(theta) * std::cos(phi)};
        return vertex(d * r, d, {u, v});
    };
    for (int j = 0; j < kSphereRows; ++j)
        for (int i = 0; i < kSphereColumns; ++i) {
            Tvertex a = at(i, j), b = at(i + 1, j), c = at(i + 1, j + 1), d = at(i, j + 1);
            out.insert(out.end(), {a, b, c, a, c, d});
        }
}

void disc(float r, std::vector<Tvertex>& out) {
    auto rim = [r](int i) {
        float a = 2 * float(M_PI) * float(i) / kDiscSegments;
        T3Float p{r * std::cos(a), 0, r * std::sin(a)};
        return vertex(p, {0, 1, 0}, {0.5f + p.x / (2 * r), 0.5f - p.z / (2 * r)});
    };
    Tvertex centre = vertex({0, 0, 0}, {0, 1, 0}, {0.5f, 0.5f});
    for (int i = 0; i < kDiscSegments; ++i) out.insert(out.end(), {centre, rim(i), rim(i + 1)});
}

void triangles(const TtriangleMesh& mesh, std::vector<Tvertex>& out) {
    const T2Float corners[3] = {{0, 0}, {1, 0}, {0, 1}};  // the render's UVs of a mesh without any
    for (unsigned t = 0; t < mesh.triangleCount(); ++t) {
        const uint32_t* idx = &mesh.indices[3 * size_t(t)];
        T3Float face = normalize(cross(mesh.positions[idx[1]] - mesh.positions[idx[0]], mesh.positions[idx[2]] - mesh.positions[idx[0]]));
        for (int k = 0; k < 3; ++k)
            out.push_back(vertex(mesh.positions[idx[k]], mesh.hasNormals() ? mesh.normals[idx[k]] : face,
                                 mesh.hasUvs() ? mesh.uvs[idx[k]] : corners[k]));
    }
}

// The surface under each texel of a size x size raster over the object's
// UVs (rows from the top), found by drawing its triangles in UV space.
void uvSurface(const std::vector<Tvertex>& triangles, const TrenderObject& object, unsigned size, std::vector<TsurfaceTexel>& texels) {
    texels.assign(size_t(size) * size, TsurfaceTexel());
    const float n = float(size);
    for (size_t t = 0; t + 2 < triangles.size(); t += 3) {
        const Tvertex& a = triangles[t];
        const Tvertex& b = triangles[t + 1];
        const Tvertex& c = triangles[t + 2];
        // Texel coordinates: x along u, y down from v = 1.
        const float ax = a.uv[0] * n, ay = (1 - a.uv[1]) * n, bx = b.uv[0] * n, by = (1 - b.uv[1]) * n;
        const float cx = c.uv[0] * n, cy = (1 - c.uv[1]) * n;
        const float area = (bx - ax) * (cy - ay) - (cx - ax) * (by - ay);
        if (std::fabs(area) < 1e-12f) continue;
        const int x0 = std::max(0, int(std::floor(std::min({ax, bx, cx})))), x1 = std::min(int(size) - 1, int(std::ceil(std::max({ax, bx, cx}))));
        const int y0 = std::max(0, int(std::floor(std::min({ay, by, cy})))), y1 = std::min(int(size) - 1, int(std::ceil(std::max({ay, by, cy}))));
        for (int y = y0; y <= y1; ++y)
            for (int x = x0; x <= x1; ++x) {
                const float px = x + 0.5f, py = y + 0.5f;
                const float wb = ((px - ax) * (cy - ay) - (cx - ax) * (py - ay)) / area;
                const float wc = ((bx - ax) * (py - ay) - (px - ax) * (by - ay)) / area;
                const float wa = 1 - wb - wc;
                constexpr float kEdge = -1e-4f;
                if (wa < kEdge || wb < kEdge || wc < kEdge) continue;
                auto mix = [&](const float* pa, const float* pb, const float* pc) {
                    return T3Float{pa[0] * wa + pb[0] * wb + pc[0] * wc, pa[1] * wa + pb[1] * wb + pc[1] * wc,
                                   pa[2] * wa + pb[2] * wb + pc[2] * wc};
                };
                TsurfaceTexel& texel = texels[size_t(y) * size + size_t(x)];
                texel.pointObj = mix(a.p, b.p, c.p);
                texel.pointCamera = object.objectToCamera.transformPoint(texel.pointObj);
                texel.normalCamera = normalize(object.normalToCamera.transformVector(mix(a.n, b.n, c.n)));
                texel.covered = true;
            }
    }
}

bool linksLights(TdependGraph& graph) {
    for (TdependNode* node : graph.nodes())
        if (node->typeof()->istype(TdnLightLink::sMetaclass())) return true;
    return false;
}

GLint uniform(unsigned program, const char* name) { return glGetUniformLocation(program, name); }
}  // namespace

struct TglPreview::Tdrawable {
    unsigned buffer = 0, array = 0;
    int count = 0;
    int infoIndex = -1;
    std::vector<int> lights;  // indices into fLights that reach the object
    float uvTransform[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    int id = 0;
    T3Float centre;                                   // of its bounds, camera space
    T3Float textureGlow;                              // the ambient colour of a textured material
    float reflectivity = 0, reflectionRollOff = -1;  // roll-off below 0: none
    TglTextureObject* texture = nullptr;              // owned by the group's record or `tile`
    std::unique_ptr<TtilableTextureCache> tile;       // a file placement drawn by texture repeat
    std::unique_ptr<TmaterialTexture> environment;    // a cube map, for a reflective object
};

TglPreview::TglPreview() = default;

TglPreview::~TglPreview() {
    if (!fPort) return;
    fPort->makeCurrent();
    for (TmaterialInfo* info : fInfos) info->purgeTextures();  // texture objects go while the context is current
    for (Tdrawable& d : fDrawables) {
        d.environment.reset();
        d.tile.reset();
        glDeleteBuffers(1, &d.buffer);
        glDeleteVertexArrays(1, &d.array);
    }
    if (fProgram) glDeleteProgram(fProgram);
}

bool TglPreview::buildProgram(std::string& error) {
    auto compile = [&](GLenum kind, const char* text) -> unsigned {
        unsigned s = glCreateShader(kind);
        glShaderSource(s, 1, &text, nullptr);
        glCompileShader(s);
        GLint ok = 0;
        glGetShaderiv(s, GL_COMPILE_STATUS, &ok);
        if (!ok) {
            char log[1024] = {};
            glGetShaderInfoLog(s, sizeof log, nullptr, log);
            error = std::string("preview shader: ") + log;
            return 0;
        }
        return s;
    };
    unsigned vs = compile(GL_VERTEX_SHADER, kVertexShader), fs = vs ? compile(GL_FRAGMENT_SHADER, kFragmentShader) : 0;
    if (!vs || !fs) return false;
    fProgram = glCreateProgram();
    glAttachShader(fProgram, vs);
    glAttachShader(fProgram, fs);
    glBindAttribLocation(fProgram, 0, "position");
    glBindAttribLocation(fProgram, 1, "normal");
    glBindAttribLocation(fProgram, 2, "uv");
    glLinkProgram(fProgram);
    glDeleteShader(vs);
    glDeleteShader(fs);
    GLint ok = 0;
    glGetProgramiv(fProgram, GL_LINK_STATUS, &ok);
    if (!ok) error = "preview shader program does not link";
    return ok;
}

bool TglPreview::build(TdependGraph& graph, const std::string& sceneFile, const TpreviewOptions& options, std::string& error) {
    fScene = std::make_unique<TrenderScene>();
    if (!fScene->build(graph, sceneFile, "", error)) return false;
    const TrenderCamera& camera = fScene->camera();
    fWidth = options.width > 0 ? options.width : fScene->settings().width;
    fHeight = options.height > 0 ? options.height : fScene->settings().height;
    fBackground = camera.background;
    fPort = T3dPort::create(fWidth, fHeight, error);
    if (!fPort || !buildProgram(error)) return false;

    // The host's answer for bakes without a resolution of their own.
    unsigned resolution = options.textureResolution;
    theCommandEngine().registerCommand("optionVar", [resolution](const std::vector<std::string>& args) {
        TscriptCmdResult r;
        r.ok = args.size() == 2 && args[0] == "-query" && args[1] == "defaultTextureResolution";
        if (r.ok) r.value = std::to_string(resolution);
        return r;
    });
    TdnFileTexture::setSceneDirectory(sceneFile.empty() ? std::string() : std::filesystem::path(sceneFile).parent_path().string());

    // The projection of the render's camera rays, rows from the top.
    float halfW = camera.orthographic ? camera.orthographicWidth / 2 : camera.tanHalfWidth;
    float halfH = halfW * float(fHeight) / float(fWidth);
    float n = camera.nearClip, f = std::min(camera.farClip, 1.0e5f);
    std::fill(std::begin(fProjection), std::end(fProjection), 0.0f);
    if (camera.orthographic) {
        fProjection[0] = 1 / halfW, fProjection[5] = 1 / halfH;
        fProjection[10] = -2 / (f - n), fProjection[14] = -(f + n) / (f - n), fProjection[15] = 1;
    } else {
        fProjection[0] = 1 / halfW, fProjection[5] = 1 / halfH;
        fProjection[10] = -(f + n) / (f - n), fProjection[11] = -1, fProjection[14] = -2 * f * n / (f - n);
    }

    // Lights in camera space.
    const Tmatrix& worldToCamera = camera.worldToCamera;
    for (TdependNode* node : graph.nodes()) {
        if (!node->typeof()->istype(TrenderLightShape::sMetaclass()) || !TdagPathUtils::lightTakesPart(node)) continue;
        auto* shape = static_cast<TlightShape*>(node->cast(TlightShape::sMetaclass()));
        std::vector<TdagPath> paths = static_cast<TdagNode*>(node->cast(TdagNode::sMetaclass()))->allPaths();
        Tmatrix toCamera = (paths.empty() ? Tmatrix() : paths.front().inclusiveMatrix()) * worldToCamera;
        T3Float colour{1, 1, 1};
        float intensity = 1;
        node->getAttributeValue(&shape->attrColor(), &colour);
        node->getAttributeValue(&shape->attrIntensity(), &intensity);
        Tlight light{2, colour * intensity, toCamera.transformPoint({0, 0, 0}), 0, node};
        if (node->typeof()->istype(TambientLightShape::sMetaclass())) {
            light.kind = 0;
            node->getAttributeValue(&TambientLightShape::saAmbientShade(), &light.ambientShade);
        } else if (node->typeof()->istype(TdirectionalLightShape::sMetaclass())) {
            light.kind = 1;
            light.vector = normalize(toCamera.transformVector({0, 0, 1}));  // it shines down its -z
        }
        fLights.push_back(light);
    }

    // Materials, one per group: an info node connected from the group's
    // message, which watches the group's network from then on. Textures are
    // made per object below.
    const bool linked = linksLights(graph);
    for (TDNshadingEngine* group : fScene->groups()) {
        if (linked) group->collectLights(fScene->groupObjects(group));
        auto* info = static_cast<TmaterialInfo*>(graph.createNode("materialInfo", Tstring(group->name().str() + "Info")));
        if (!info || graph.connect(Tplug(group, &TdependNode::saMessage()), Tplug(info, &TmaterialInfo::saShadingGroup())) !=
                         TconnectStatus::kOk) {
            error = "cannot attach a material info to " + group->name().str();
            return false;
        }
        fInfos.push_back(info);
    }

    // Geometry in camera space, one buffer per object.
    for (const auto& object : fScene->objects()) {
        if (!object->primaryVisibility) continue;
        std::vector<Tvertex> vertices;
        if (object->kind == TshapeKind::kSphere) sphere(object->radius, vertices);
        else if (object->kind == TshapeKind::kDisc) disc(object->radius, vertices);
        else if (object->mesh) triangles(*object->mesh, vertices);
        const std::vector<Tvertex> objectSpace = vertices;
        T3Float low{1e30f, 1e30f, 1e30f}, high{-1e30f, -1e30f, -1e30f};
        for (Tvertex& v : vertices) {
            T3Float p = object->objectToCamera.transformPoint({v.p[0], v.p[1], v.p[2]});
            T3Float nn = normalize(object->normalToCamera.transformVector({v.n[0], v.n[1], v.n[2]}));
            v = vertex(p, nn, {v.uv[0], v.uv[1]});
            low = {std::min(low.x, p.x), std::min(low.y, p.y), std::min(low.z, p.z)};
            high = {std::max(high.x, p.x), std::max(high.y, p.y), std::max(high.z, p.z)};
        }
        Tdrawable d;
        d.centre = (low + high) * 0.5f;
        d.count = int(vertices.size());
        d.id = int(object->index) + 1;
        auto groupAt = std::find(fScene->groups().begin(), fScene->groups().end(), object->group);
        if (groupAt != fScene->groups().end()) d.infoIndex = int(groupAt - fScene->groups().begin());
        for (size_t k = 0; k < fLights.size() && int(d.lights.size()) < kMaxLights; ++k)
            if (!linked || !object->group || object->group->litBy(object->fNumber, fLights[k].node)) d.lights.push_back(int(k));
        if (d.infoIndex >= 0) {
            // The texture of this object: a switch picks by the object, a
            // solid texture is baked over the object's own surface.
            TevaluateTextureInfoArray at(1);
            at[0].path = object->path;
            at[0].port = fPort.get();
            at[0].eyeToWorld = camera.cameraToWorld;
            at[0].pixelAngle = camera.orthographic ? 0.0f : 2 * camera.tanHalfWidth / float(fWidth);
            at[0].surface = [&objectSpace, &object](unsigned size, std::vector<TsurfaceTexel>& texels) {
                uvSurface(objectSpace, *object, size, texels);
            };
            TmaterialInfo* info = fInfos[size_t(d.infoIndex)];
            info->setMaterial(object->path, true);
            info->evaluateTexture(at);
            d.texture = at[0].result;
            info->apply2dTextureTransform(object->path, d.uvTransform);
            useTile(d, info->colorTexture());
            if (d.texture)
                if (auto glow = unconnectedColor(info->material(), "ambientColor")) d.textureGlow = *glow;
        }
        // The render traces mirror rays only with ray tracing on; a material
        // with reflectivity then shows the scene around it.
        TdependNode* material = d.infoIndex >= 0 ? fInfos[size_t(d.infoIndex)]->material() : nullptr;
        if (material && fScene->settings().maxRayDepth > 0) {
            d.reflectivity = float(unconnectedNumber(material, "reflectivity").value_or(0));
            // Blinn scales its reflection by the view roll-off unless told not to.
            if (auto rollOff = unconnectedNumber(material, "specularRollOff"))
                if (unconnectedNumber(material, "reflectionRolloff").value_or(1) != 0) d.reflectionRollOff = float(*rollOff);
        }
        glGenVertexArrays(1, &d.array);
        glBindVertexArray(d.array);
        glGenBuffers(1, &d.buffer);
        glBindBuffer(GL_ARRAY_BUFFER, d.buffer);
        glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(vertices.size() * sizeof(Tvertex)), vertices.data(), GL_STATIC_DRAW);
        glEnableVertexAttribArray(0);
        glVertexAttribPointer(0, 3, GL_FLOAT, GL_FALSE, sizeof(Tvertex), reinterpret_cast<void*>(offsetof(Tvertex, p)));
        glEnableVertexAttribArray(1);
        glVertexAttribPointer(1, 3, GL_FLOAT, GL_FALSE, sizeof(Tvertex), reinterpret_cast<void*>(offsetof(Tvertex, n)));
        glEnableVertexAttribArray(2);
        glVertexAttribPointer(2, 2, GL_FLOAT, GL_FALSE, sizeof(Tvertex), reinterpret_cast<void*>(offsetof(Tvertex, uv)));
        fDrawables.push_back(std::move(d));
    }
    glBindVertexArray(0);
    bakeEnvironments();
    return glGetError() == GL_NO_ERROR || (error = "OpenGL error while building the preview", false);
}

void TglPreview::useTile(Tdrawable& d, const TmaterialTexture* texture) {
    // A file whose frame covers part of the surface, or that mirrors,
    // draws from a tile of its placement: the image in the frame, the
    // default colour around it, and repeat does the rest as in a render.
    if (!d.texture || !texture || texture->kind() != TmaterialTexture::kFile || !texture->lastImage()) return;
    TdependNode* node = texture->node();
    auto* file = static_cast<TdnFileTexture*>(node->cast(TdnFileTexture::sMetaclass()));
    auto number = [node](const char* name, double fallback) { return unconnectedNumber(node, name).value_or(fallback); };
    const bool partial = number("coverageU", 1) < 1 || number("coverageV", 1) < 1;
    const bool mirrored = number("mirrorU", 0) != 0 || number("mirrorV", 0) != 0;
    if (!file || !(partial || mirrored) || !TtilableTextureCache::isTilable(node)) return;
    auto tile = std::make_unique<TtilableTextureCache>();
    if (!tile->updatePlacement(file) || !tile->tileTexture(*texture->lastImage(), fPort->haveMirrorRepeat())) return;
    const float m[9] = {tile->scale[0], 0, 0, 0, tile->scale[1], 0, tile->shift[0], tile->shift[1], 1};
    std::copy(std::begin(m), std::end(m), d.uvTransform);
    d.texture = tile->getHWTexture();
    d.tile = std::move(tile);
}

void TglPreview::bakeEnvironments() {
    for (Tdrawable& d : fDrawables) {
        if (!(d.reflectivity > 0) || d.infoIndex < 0) continue;
        d.environment = std::make_unique<TmaterialTexture>(fInfos[size_t(d.infoIndex)], TmaterialTexture::kCubeMap);
        const Tdrawable* self = &d;
        TcubeMapSource source;
        source.centre = d.centre;
        source.size = kEnvironmentSize;
        source.draw = [this, self](const float* view, const float* projection) {
            drawPass(false, view, projection, self->centre, self);
        };
        d.environment->initAsCubeMap(std::move(source));
        TevaluateTextureInfo at;
        at.port = fPort.get();
        if (!d.environment->getTexture(at)) d.environment.reset();  // drawn without its mirror term
    }
}

const TglTextureObject* TglPreview::environmentMap(unsigned objectIndex) const {
    for (const Tdrawable& d : fDrawables)
        if (d.id == int(objectIndex) + 1 && d.environment) return d.environment->textureObject(0);
    return nullptr;
}

void TglPreview::useObject(const Tdrawable& d, bool ids, bool reflections) {
    unsigned p = fProgram;
    glUniform1i(uniform(p, "ids"), ids);
    glUniform1f(uniform(p, "objectId"), float(d.id) / 255.0f);
    if (ids) return;
    TmaterialInputData data;
    TmaterialInfo* info = d.infoIndex >= 0 ? fInfos[size_t(d.infoIndex)] : nullptr;
    if (info) data = info->data();
    glUniform3f(uniform(p, "diffuseColour"), data.diffuse.r, data.diffuse.g, data.diffuse.b);
    glUniform3f(uniform(p, "ambientColour"), data.ambient.r, data.ambient.g, data.ambient.b);
    glUniform3f(uniform(p, "specularColour"), data.specular.r, data.specular.g, data.specular.b);
    glUniform3f(uniform(p, "emissionColour"), data.emission.r, data.emission.g, data.emission.b);
    glUniform1f(uniform(p, "shininess"), data.shininess);
    glUniform3f(uniform(p, "textureGlow"), d.textureGlow.x, d.textureGlow.y, d.textureGlow.z);
    glUniform1f(uniform(p, "alpha"), data.alpha);
    TglTextureObject* texture = d.texture;
    glUniform1i(uniform(p, "textured"), texture != nullptr);
    glActiveTexture(GL_TEXTURE0);
    if (texture) texture->bind();
    glUniform1i(uniform(p, "colourMap"), 0);
    glUniformMatrix3fv(uniform(p, "uvTransform"), 1, GL_FALSE, d.uvTransform);
    TglTextureObject* environment = reflections && d.environment ? d.environment->textureObject(0) : nullptr;
    glUniform1i(uniform(p, "reflective"), environment != nullptr);
    glActiveTexture(GL_TEXTURE1);
    if (environment) environment->bind();
    glActiveTexture(GL_TEXTURE0);
    glUniform1i(uniform(p, "environment"), 1);
    glUniform1f(uniform(p, "reflectivity"), d.reflectivity);
    glUniform1f(uniform(p, "reflectionRollOff"), d.reflectionRollOff);
    int count = int(d.lights.size());
    glUniform1i(uniform(p, "lightCount"), count);
    for (int k = 0; k < count; ++k) {
        const Tlight& l = fLights[size_t(d.lights[size_t(k)])];
        std::string at = "[" + std::to_string(k) + "]";
        glUniform1i(uniform(p, ("lightKind" + at).c_str()), l.kind);
        glUniform3f(uniform(p, ("lightColour" + at).c_str()), l.colour.x, l.colour.y, l.colour.z);
        glUniform3f(uniform(p, ("lightVector" + at).c_str()), l.vector.x, l.vector.y, l.vector.z);
        glUniform1f(uniform(p, ("lightShade" + at).c_str()), l.ambientShade);
    }
}

void TglPreview::draw() {
    fPort->makeCurrent();
    fPort->bindTarget();
    drawPass(false, kIdentity, fProjection, {0, 0, 0}, nullptr);
}

void TglPreview::drawObjectIds() {
    fPort->makeCurrent();
    fPort->bindTarget();
    drawPass(true, kIdentity, fProjection, {0, 0, 0}, nullptr);
}

void TglPreview::drawPass(bool ids, const float* view, const float* projection, const T3Float& eye, const Tdrawable* hidden) {
    glEnable(GL_DEPTH_TEST);
    if (ids) {
        glDisable(GL_BLEND);  // numbers must land as they are
        glClearColor(0, 0, 0, 1);
    } else {
        glEnable(GL_BLEND);
        glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        glClearColor(fBackground.x, fBackground.y, fBackground.z, 1);
    }
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glUseProgram(fProgram);
    glUniformMatrix4fv(uniform(fProgram, "projection"), 1, GL_FALSE, projection);
    glUniformMatrix4fv(uniform(fProgram, "view"), 1, GL_FALSE, view);
    glUniform3f(uniform(fProgram, "eye"), eye.x, eye.y, eye.z);
    for (const Tdrawable& d : fDrawables) {
        if (&d == hidden) continue;
        useObject(d, ids, hidden == nullptr);
        glBindVertexArray(d.array);
        glDrawArrays(GL_TRIANGLES, 0, d.count);
    }
    glBindVertexArray(0);
    glFinish();
}
