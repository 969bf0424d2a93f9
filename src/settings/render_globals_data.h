#pragma once
// TcommonRenderGlobalsData: a plain snapshot of the render settings for one
// render, so that a render never reads the graph. The settings nodes copy
// their attributes in; the renderer asks it for the file name of each image.
//
// The naming state hangs together: the name pattern is built from the image
// file prefix, the frame padding and the naming scheme, and the fixed name
// pattern is the name pattern made safe for several cameras, layers and
// frames. Every setter that touches one of those rebuilds both.
#include "framework/host/anim_time.h"
#include "framework/host/string_array.h"
#include "framework/host/tstring.h"
#include "settings/image_format.h"
#include "settings/render_layer_state.h"

// Where a name points. 0: as the pattern gives it; 1: the final image,
// under the images folder; 2: a temporary image beside or below it.
enum TpathType : int {
    kPathRelative = 0,
    kPathImages = 1,
    kPathTemporary = 2,
};

class TcommonRenderGlobalsData {
public:
    TcommonRenderGlobalsData();

    // -- Naming: setters that rebuild the name patterns.

    // The image file prefix, itself a pattern ("%s", "renders/<Camera>/shot").
    void setImageName(const Tstring& prefix);
    // The image format by number, key, label or extension ("7", "kIFF",
    // "Tovi IFF", "iff"). A multi-frame format changes the naming scheme.
    // False, with nothing changed, when the text names no format.
    bool setImageFormat(const Tstring& format);
    // The field being rendered ("odd", "even"), or empty.
    void setFieldName(const Tstring& field);
    // The naming scheme by digit ("1" to "7") or label ("name", "name.#.ext",
    // ...). False, with nothing changed, for any other text.
    bool setNamingConvention(const Tstring& label);
    // Digits of the frame number in the name; negative counts as 0.
    void setFramePadding(int padding);
    // Reads the layer's passes, the renderable cameras and whether layers
    // other than the default one render, and rebuilds the patterns.
    void initializeImageNameSettings(const TrenderLayerState* layer, bool defaultLayerOnly);

    // The pass being written; does not change the patterns.
    void setPassName(const Tstring& pass) { fPassName = pass; }

    // -- Naming: plain values.
    void setVersionLabel(const Tstring& label) { fVersionLabel = label; }
    void setAnimated(bool animated) { fAnimated = animated; }
    void setFrameRange(float start, float end, float by);
    void setExtensionModifier(bool on, float startExtension, float byExtension);
    void setCustomExtension(const Tstring& extension) { fCustomExtension = extension; }
    // Nonzero: names carry no format extension (a custom one still applies).
    void setExtensionLeftOut(short leftOut) { fExtensionLeftOut = leftOut; }
    void setFrameOverride(const Tstring& text) { fFrameOverride = text; }
    void setImagesFolder(const Tstring& folder) { fImagesFolder = folder; }
    void setImfPluginKey(const Tstring& key) { fImfPluginKey = key; }
    void setRenderableCameras(const TstringArray& cameras) { fRenderableCameras = cameras; }

    // -- Queries.
    int namingScheme() const { return fNamingScheme; }
    int framePadding() const { return fFramePadding; }
    int imageFormat() const { return fImageFormat; }
    const Tstring& imageFilePrefix() const { return fImageFilePrefix; }
    const Tstring& namePattern() const { return fNamePattern; }
    const Tstring& getNameFixedPattern() const { return fFixedNamePattern; }
    const Tstring& passName() const { return fPassName; }
    const Tstring& fieldName() const { return fFieldName; }
    bool isAnimated() const { return fAnimated; }
    bool needsFrameNumber() const { return fNeedsFrameNumber; }
    bool severalPasses() const { return fSeveralPasses; }
    bool severalLayers() const { return fSeveralLayers; }
    bool severalCameras() const { return fSeveralCameras; }
    void getRenderableCameras(TstringArray& cameras) const { cameras = fRenderableCameras; }

    bool isMultiframeFormat() const;
    // The format's name for the image file library; "UNKNOWN" when it has
    // none (the plug-in format answers with its plug-in key when one is set).
    Tstring getImfFormat() const;
    // The extension the format's files end in ("iff", "mov", "tif").
    Tstring getFormatExtension() const;
    // The same, in lower case.
    Tstring fileFormatExtension() const;

    // The file name of one image of `camera` at `time`. A non-empty
    // `extension` overrides the format's. With `useFixedPattern` false the
    // pattern as built is used, unrepaired.
    Tstring getImageName(TpathType pathType, TanimTime time, const Tstring& camera, const Tstring& extension,
                         const TrenderLayerState* layer, const Tstring& scene, bool keepNumberToken = false,
                         bool useFixedPattern = true) const;
    // Every image one frame writes: for each pass, each renderable camera,
    // each field, in that nesting. Names are made distinct: the pattern gains
    // the folders the enumeration needs even where the flags did not ask.
    void getAllImageNames(TpathType pathType, TanimTime time, const Tstring& extension, const TrenderLayerState* layer,
                          const Tstring& scene, const TstringArray* passes, const TstringArray* fields,
                          TstringArray& names) const;

    // Rebuilds the name pattern from the prefix, the padding and the scheme.
    void updateNamePattern();

    // The naming schemes. 7 and 8 are "name" and "name.ext" for a format
    // that holds every frame in one file.
    enum TnamingScheme : int {
        kName = 0,
        kNameExt = 1,
        kNameFrameExt = 2,
        kNameExtFrame = 3,
        kNameFrame = 4,
        kNameFrameNoDotExt = 5,
        kNameUnderscoreFrameExt = 6,
        kMultiframeName = 7,
        kMultiframeNameExt = 8,
    };

private:
    void setNamingScheme(const Tstring& label);
    void refreshNaming();
    bool needCamera() const;
    bool needLayer() const;
    Tstring composeName(const Tstring& pattern, TpathType pathType, TanimTime time, const Tstring& camera,
                        const Tstring& extension, const TrenderLayerState* layer, const Tstring& scene,
                        const Tstring& pass, const Tstring& field, bool keepNumberToken) const;

    // Naming, in the order the settings describe it.
    Tstring fVersionLabel;
    int fNamingScheme = kNameExt;
    int fFramePadding = 4;
    Tstring fImageFilePrefix;
    Tstring fNamePattern;
    Tstring fFixedNamePattern;
    int fImageFormat = TimageFormats::kIFF;
    bool fModifyExtension = false;
    float fStartExtension = 1.0f;
    float fByExtension = 1.0f;
    Tstring fCustomExtension;
    short fExtensionLeftOut = 0;
    bool fSeveralPasses = false;
    bool fSeveralLayers = false;
    bool fSeveralCameras = false;
    bool fNeedsFrameNumber = false;
    bool fAnimated = false;
    Tstring fPassName;
    Tstring fFieldName;

    // Render settings that naming reads.
    float fStartFrame = 1.0f;
    float fEndFrame = 10.0f;
    float fByFrame = 1.0f;
    Tstring fFrameOverride;
    Tstring fImagesFolder = "images";
    Tstring fImfPluginKey;
    TstringArray fRenderableCameras;
};
