#pragma once
// The encoding of images meant for a screen: scene-linear RGB through a
// colour configuration to a display's view (sRGB by default) or to a named
// colour space. The configuration is the file $OCIO names, or a small
// built-in one (linear, sRGB, Gamma 2.2, raw) when $OCIO is unset.
#include <cstddef>
#include <memory>
#include <string>

class TdisplayTransform {
public:
    // Chooses the encoding: `colorspace` names a colour space of the
    // configuration; when it is empty, `view` names a view of the default
    // display ("" for its default view). False with `error` set when the
    // configuration cannot be read or holds no such name; `error` then lists
    // what it does hold.
    bool setup(const std::string& colorspace, const std::string& view, std::string& error);

    // Encodes `count` unassociated RGBA pixels in place; alpha is left as it
    // is. Before a successful setup it does nothing.
    void apply(float* rgba, size_t count) const;

    // The colour space the encoded pixels are in, for the file's tag.
    const std::string& encodingName() const { return fEncoding; }

    // Where the configuration comes from: the file $OCIO names or "built-in".
    static std::string sConfigSource();

private:
    struct Tprocessor;
    std::shared_ptr<const Tprocessor> fProcessor;
    std::string fEncoding;
};
