#pragma once
// The pre-flight of a render. Finds every problem that would stop a render
// of a graph or make it wrong (errors: the render refuses) and what renders
// but is probably a mistake (warnings). `shadenet check` prints all of them,
// `shadenet render` refuses on errors and prints the warnings, and the scene
// build refuses on errors, so that no caller reaches the tracer with values
// it cannot take (NaN transforms, zero-scale cameras, coordinates past the
// tracer's range).
#include <cstdint>
#include <string>
#include <vector>

#include "framework/host/math.h"

class TdependGraph;
struct TtriangleMesh;

struct TsceneIssue {
    enum class Kind { kError, kWarning };
    Kind kind = Kind::kError;
    std::string node;       // empty for the scene as a whole
    std::string attribute;  // empty when no single attribute is at fault
    std::string message;

    bool isError() const { return kind == Kind::kError; }
    // "node 'cam' attribute 'focalLength': <message>", or the message alone.
    std::string text() const;
};

struct TsceneCheckOptions {
    std::string camera;          // node name or path; empty for the first renderable camera
    int width = 0, height = 0;   // overrides of the resolution settings; 0 keeps them
    bool requireCamera = true;   // false: a scene without any camera only gets a warning
    bool readMeshes = true;      // read every mesh file (the scene build reads them itself)
};

class TsceneCheck {
public:
    // Farthest from the origin, in world units, that geometry or the camera
    // may lie: the tracer refuses rays that start much beyond 1.8e18, and
    // secondary rays start on surfaces.
    static constexpr double kMaxCoordinate = 1.0e15;
    // The same in a shape's own space, where the tracer meets its rays.
    static constexpr double kMaxObjectCoordinate = 1.0e17;
    // What a render holds per pixel: the float RGBA frame and, while the
    // image is written, a converted copy of it at most as large.
    static constexpr uint64_t kBytesPerPixel = 32;

    // Checks `graph`; `sceneFile` anchors relative mesh names. True when no
    // error was found.
    bool run(TdependGraph& graph, const std::string& sceneFile, const TsceneCheckOptions& options);
    const std::vector<TsceneIssue>& issues() const { return fIssues; }
    bool hasErrors() const;
    // Every error's text, one per line.
    std::string errorText() const;

private:
    std::vector<TsceneIssue> fIssues;
};

// Helpers the scene build shares with the check.

// Zero scale on an axis (or a projection): the object has no volume to draw.
bool isDegenerateTransform(const Tmatrix& objectToWorld);
// How far from the origin, in world units, an object-space box [lo, hi]
// placed by `objectToWorld` reaches; infinite when not a number.
double farthestReach(const Tmatrix& objectToWorld, const T3Float& lo, const T3Float& hi);
// The message about an object-space box [lo, hi] placed by `objectToWorld`
// that reaches past kMaxCoordinate, or empty when it fits.
std::string reachProblem(const Tmatrix& objectToWorld, const T3Float& lo, const T3Float& hi);
// The message about a shape or camera placed by `toWorld` whose own space
// puts a scene reaching `sceneReach` world units past `limit`, or empty when
// it fits. The tracer meets a shape's rays in the shape's space
// (kMaxObjectCoordinate); the engine shades in the camera's (kMaxCoordinate).
std::string smallScaleProblem(const Tmatrix& toWorld, double sceneReach, double limit);
// Object-space bounds of a mesh's positions.
void meshBounds(const TtriangleMesh& mesh, T3Float& lo, T3Float& hi);
// The message about a width x height frame that the machine's memory cannot
// hold, or empty when it fits. `machineBytes` 0 asks the system.
std::string frameMemoryProblem(int64_t width, int64_t height, uint64_t machineBytes = 0);
uint64_t machineMemoryBytes();
