// The compiled half of the Python package: scenes held in a graph, renders
// and swatches into NumPy arrays, listings and BOT conversion. The Python
// half (shadenet/__init__.py) turns values into JSON text and back, so this
// file speaks JSON text wherever a value crosses.
//
// Errors carry the text the command line prints after "shadenet <command>:
// error: ", one problem per line.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "framework/attribute_notes.h"
#include "framework/host/command_engine.h"
#include "framework/host/depend_graph.h"
#include "framework/host/plug.h"
#include "renderer/renderer.h"
#include "renderer/scene_check.h"
#include "renderer/swatch.h"
#include "scene/attribute_override.h"
#include "scene/scene_loader.h"
#include "scene/scene_writer.h"
#include "scene/value_codec.h"
#include "shading/program_listing.h"
#include "textures/pyramid/bot_convert.h"
#include "renderer/texture_swatch.h"

namespace py = pybind11;

namespace {
struct TpythonError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string joinLines(const std::vector<std::string>& lines) {
    std::string text;
    for (const std::string& l : lines) text += (text.empty() ? "" : "\n") + l;
    return text;
}

// The frame buffer as an h x w x 4 float32 array that owns a copy.
py::array_t<float> toArray(const TframeBuffer& image) {
    py::array_t<float> out({py::ssize_t(image.height()), py::ssize_t(image.width()), py::ssize_t(4)});
    std::memcpy(out.mutable_data(), image.data().data(), image.data().size() * sizeof(float));
    return out;
}

TrenderOptions renderOptions(std::optional<std::pair<int, int>> resolution, int spp, int threads, const std::string& camera) {
    TrenderOptions options;
    if (resolution) {
        auto [w, h] = *resolution;
        if (w < 1 || h < 1 || w > kMaxImageSide || h > kMaxImageSide)
            throw py::value_error("resolution: width and height must be between 1 and " + std::to_string(kMaxImageSide));
        options.width = w, options.height = h;
    }
    if (spp < 0 || spp > 64) throw py::value_error("spp: must be between 1 and 64 (0 for the scene's own)");
    if (threads < 0) throw py::value_error("threads: must be at least 1 (0 for every core)");
    options.samplesPerPixel = spp;
    options.threads = threads;
    options.camera = camera;
    return options;
}

TswatchOptions swatchOptions(int size, int spp) {
    // The command line's limits for the same options.
    if (size < 8 || size > 4096) throw py::value_error("size: must be between 8 and 4096");
    if (spp < 1 || spp > 64) throw py::value_error("spp: must be between 1 and 64");
    TswatchOptions options;
    options.size = size, options.samplesPerPixel = spp;
    return options;
}

// Runs `draw(image, error)` without the interpreter lock; the image as an
// array, or the error raised.
template <typename Draw>
py::array_t<float> imageOf(Draw&& draw) {
    TframeBuffer image;
    std::string error;
    bool ok;
    {
        py::gil_scoped_release release;
        ok = draw(image, error);
    }
    if (!ok) throw TpythonError(error);
    return toArray(image);
}

// Messages the library posts while a call runs (a BOT file that cannot be
// written, say) become the exception's text instead of going to stderr.
class TmessageCollector {
public:
    std::string errors() const {
        std::vector<std::string> lines;
        for (const TcommandMessage& m : fCapture.messages())
            if (m.severity == TmessageSeverity::kError) lines.push_back(m.text);
        return joinLines(lines);
    }

private:
    TcommandCapture fCapture;
};

class Tscene {
public:
    Tscene() = default;
    explicit Tscene(const std::string& path) : fFile(path) {
        TsceneLoader loader;
        if (!loader.load(path, fGraph)) {
            std::vector<std::string> lines;
            for (const TsceneError& e : loader.errors()) lines.push_back(e.text());
            throw TpythonError(joinLines(lines));
        }
    }

    const std::string& file() const { return fFile; }
    void setFile(const std::string& file) { fFile = file; }

    void save(const std::string& path) {
        std::lock_guard lock(fMutex);
        TsceneWriter writer;
        if (!writer.save(fGraph, path)) throw TpythonError(writer.error());
    }
    std::string text() {
        std::lock_guard lock(fMutex);
        return TsceneWriter::toText(fGraph);
    }

    std::string create(const std::string& type, const std::string& name) {
        std::lock_guard lock(fMutex);
        if (!TdependGraph::findNodeType(type)) throw TpythonError("unknown node type '" + type + "'");
        if (!name.empty() && fGraph.findNode(name)) throw TpythonError("a node named '" + name + "' already exists in the graph");
        TdependNode* node = fGraph.createNode(type, name);
        if (!node) throw TpythonError("node type '" + type + "' is abstract and cannot be made");
        return node->name().str();
    }

    void connect(const std::string& source, const std::string& destination, bool make) {
        std::lock_guard lock(fMutex);
        Tplug ends[2];
        const std::string* texts[2] = {&source, &destination};
        for (int i = 0; i < 2; ++i) {
            std::string why;
            if (!fGraph.findPlug(*texts[i], ends[i], &why)) throw TpythonError("bad plug '" + *texts[i] + "': " + why);
        }
        TconnectStatus status = make ? fGraph.connect(ends[0], ends[1]) : fGraph.disconnect(ends[0], ends[1]);
        if (status != TconnectStatus::kOk)
            throw TpythonError(std::string(make ? "cannot connect '" : "cannot disconnect '") + source + (make ? "' to '" : "' from '") +
                               destination + "': " + connectStatusText(status));
    }

    // "node.attr" and a value as JSON text, checked as a scene file's value.
    void set(const std::string& plug, const std::string& valueJson) {
        std::lock_guard lock(fMutex);
        TattributeOverride edit;
        std::string why;
        if (!parseAttributeOverride(plug + "=" + valueJson, edit, why)) throw TpythonError("set " + plug + ": " + why);
        edit.text = plug;
        std::vector<std::string> errors;
        if (!applyAttributeOverride(fGraph, edit, "set", errors)) throw TpythonError(joinLines(errors));
    }

    // The value of "node.attr" as JSON text, as a scene file would hold it.
    std::string get(const std::string& plugText) {
        std::lock_guard lock(fMutex);
        Tplug plug;
        std::string why;
        if (!fGraph.findPlug(plugText, plug, &why)) throw TpythonError("bad plug '" + plugText + "': " + why);
        const Tattribute& a = *plug.attribute();
        if (!isFileValueType(a) && a.childCount() == 0)
            throw TpythonError("'" + plugText + "' is of type " + valueTypeName(a.valueType()) + ", which has no value");
        std::vector<unsigned char> bytes(std::max(a.size(), 1u));
        a.constructValue(bytes.data());
        plug.node()->getAttributeValue(&a, bytes.data(), unsigned(std::max(plug.index(), 0)));
        TsceneJson value = encodeWholeValue(a, bytes.data());
        a.destructValue(bytes.data());
        return value.dump();
    }

    std::vector<std::pair<std::string, std::string>> nodes() {
        std::lock_guard lock(fMutex);
        std::vector<std::pair<std::string, std::string>> list;
        for (TdependNode* n : fGraph.nodes()) list.emplace_back(n->name().str(), n->typeName().str());
        return list;
    }

    py::array_t<float> render(std::optional<std::pair<int, int>> resolution, int spp, int threads, const std::string& camera) {
        TrenderOptions options = renderOptions(resolution, spp, threads, camera);
        TframeBuffer image;
        std::vector<std::string> warnings;
        std::string error;
        bool ok;
        {
            py::gil_scoped_release release;
            std::lock_guard lock(fMutex);
            ok = renderLocked(options, image, warnings, error);
        }
        // A warning filter may turn warnings into errors.
        for (const std::string& w : warnings)
            if (PyErr_WarnEx(PyExc_RuntimeWarning, w.c_str(), 1) < 0) throw py::error_already_set();
        if (!ok) throw TpythonError(error);
        return toArray(image);
    }

    py::array_t<float> swatch(const std::string& nodeName, int size, int spp) {
        const TswatchOptions options = swatchOptions(size, spp);
        return imageOf([&](TframeBuffer& image, std::string& error) {
            std::lock_guard lock(fMutex);
            // The preview adds its rig to the graph it renders; a copy keeps
            // this scene as the user left it.
            TdependGraph copy;
            TsceneLoader loader;
            if (!loader.loadText(TsceneWriter::toText(fGraph), fFile, copy)) {
                error = loader.errors().front().text();
                return false;
            }
            TdependNode* node = copy.findNode(nodeName);
            if (!node) {
                error = fFile + ": no node named '" + nodeName + "'";
                return false;
            }
            return isTextureType(node->typeName().str()) ? renderTextureSwatch(copy, node, options, image, error, fFile)
                                                         : renderSwatch(copy, node, options, image, error, fFile);
        });
    }

    std::string compile(const std::string& group, const std::string& option) {
        std::lock_guard lock(fMutex);
        std::string listing, error;
        if (!shadingProgramListing(fGraph, fFile, group, option, listing, error)) throw TpythonError(error);
        return listing;
    }

private:
    // The command line's road: the pre-flight check, then the render.
    bool renderLocked(const TrenderOptions& options, TframeBuffer& image, std::vector<std::string>& warnings, std::string& error) {
        TsceneCheck check;
        TsceneCheckOptions checkOptions;
        checkOptions.camera = options.camera;
        checkOptions.width = options.width, checkOptions.height = options.height;
        checkOptions.readMeshes = false;
        check.run(fGraph, fFile, checkOptions);
        std::vector<std::string> errors;
        for (const TsceneIssue& issue : check.issues())
            (issue.isError() ? errors : warnings).push_back(fFile + ": " + issue.text());
        if (!errors.empty()) {
            error = joinLines(errors);
            return false;
        }
        Trenderer renderer;
        if (!renderer.render(fGraph, fFile, options, image, error)) {
            error = fFile + ": " + error;
            return false;
        }
        for (const std::string& w : renderer.warnings()) warnings.push_back(fFile + ": " + w);
        return true;
    }

    TdependGraph fGraph;
    std::string fFile;
    std::mutex fMutex;  // renders run without the GIL
};

py::list attributesOf(const std::string& typeName) {
    TdependNodeMetaClass* type = TdependGraph::findNodeType(typeName);
    if (!type) throw TpythonError("unknown node type '" + typeName + "' (shadenet.node_types() lists them)");
    if (type->fInitialize) type->fInitialize();
    const TattributeList& attributes = type->fVs().attributes();
    py::list list;
    for (unsigned i = 0; i < attributes.length(); ++i) {
        const Tattribute& a = *attributes[i];
        TattributeDescription d = describeAttribute(*type, a);
        py::dict entry;
        entry["name"] = a.longName().str();
        entry["short"] = a.shortName().str();
        entry["type"] = valueTypeName(a.valueType());
        entry["default"] = encodeWholeValue(a, a.defaultData()).dump();
        entry["description"] = d.description;
        entry["unit"] = d.unit;
        entry["range"] = d.range;
        entry["parent"] = a.parent() ? a.parent()->longName().str() : "";
        entry["input"] = isSavedAttribute(a);
        list.append(entry);
    }
    return list;
}
}  // namespace

PYBIND11_MODULE(_shadenet, m) {
    m.doc() = "shadenet: scenes, renders and swatches as NumPy arrays";
    py::register_exception<TpythonError>(m, "Error", PyExc_RuntimeError);

    py::class_<Tscene>(m, "_Scene")
        .def(py::init<>())
        .def(py::init<const std::string&>(), py::arg("path"))
        .def_property("file", &Tscene::file, &Tscene::setFile)
        .def("save", &Tscene::save)
        .def("text", &Tscene::text)
        .def("create", &Tscene::create)
        .def("connect", &Tscene::connect)
        .def("set", &Tscene::set)
        .def("get", &Tscene::get)
        .def("nodes", &Tscene::nodes)
        .def("render", &Tscene::render)
        .def("swatch", &Tscene::swatch)
        .def("compile", &Tscene::compile);

    m.def("node_types", [] {
        std::vector<std::string> names;
        for (TdependNodeMetaClass* t : TdependGraph::nodeTypes()) names.push_back(t->fTypeName().str());
        return names;
    });
    m.def("_attributes", &attributesOf);
    m.def("_swatch_type", [](const std::string& what, int size, int spp) {
        const TswatchOptions options = swatchOptions(size, spp);
        return imageOf([&](TframeBuffer& image, std::string& error) { return renderAnySwatch(what, options, image, error); });
    });
    m.def("_bot_convert", [](const std::string& input, const std::string& output, const std::string& hdrMapping, float exposure,
                             bool keepSize) {
        TbotConvertOptions options;
        options.hdrMapping = hdrMapping == "clamp"         ? ThdrMapping::kClamp
                             : hdrMapping == "exponential" ? ThdrMapping::kExponential
                                                           : ThdrMapping::kLinear;
        options.exposure = exposure, options.keepSize = keepSize;
        std::string summary, warning, error;
        bool ok;
        std::string posted;
        {
            TmessageCollector messages;
            ok = convertImageToBot(input, output, options, summary, warning, error);
            posted = messages.errors();
        }
        if (!warning.empty() && PyErr_WarnEx(PyExc_RuntimeWarning, warning.c_str(), 1) < 0) throw py::error_already_set();
        if (!ok) throw TpythonError(error.empty() ? posted : error);
        return summary;
    });
    m.def("_option_names", &shadingOptionNames);
}
