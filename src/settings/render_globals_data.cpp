#include "settings/render_globals_data.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <regex>
#include <string>

#include "settings/image_name.h"

namespace {

// The prefix already says where the extension or the frame goes. The frame
// test takes at most one width digit: a prefix with "%10n" is not counted
// as numbered and gets a token of its own. Deliberate; patterns rely on it.
const std::regex& prefixHasExtension() {
    static const std::regex re(".*%[-_./]?e.*");
    return re;
}
const std::regex& prefixHasNumber() {
    static const std::regex re(".*%[-_./]?[0-9]?n.*");
    return re;
}

bool matchesWhole(const Tstring& text, const std::regex& re) {
    return text.length() <= TimageName::kMaxPatternLength && std::regex_match(text.str(), re);
}

struct TschemeEntry {
    const char* digit;
    const char* label;
    int scheme;
    int multiframeScheme;
};

constexpr TschemeEntry kSchemes[] = {
    {"1", "name", TcommonRenderGlobalsData::kName, TcommonRenderGlobalsData::kMultiframeName},
    {"2", "name.ext", TcommonRenderGlobalsData::kNameExt, TcommonRenderGlobalsData::kMultiframeNameExt},
    {"3", "name.#.ext", TcommonRenderGlobalsData::kNameFrameExt, TcommonRenderGlobalsData::kNameFrameExt},
    {"4", "name.ext.#", TcommonRenderGlobalsData::kNameExtFrame, TcommonRenderGlobalsData::kNameExtFrame},
    {"5", "name.#", TcommonRenderGlobalsData::kNameFrame, TcommonRenderGlobalsData::kNameFrame},
    {"6", "name#.ext", TcommonRenderGlobalsData::kNameFrameNoDotExt, TcommonRenderGlobalsData::kNameFrameNoDotExt},
    {"7", "name_#.ext", TcommonRenderGlobalsData::kNameUnderscoreFrameExt,
     TcommonRenderGlobalsData::kNameUnderscoreFrameExt},
};

const TschemeEntry* findScheme(const Tstring& label) {
    for (const TschemeEntry& e : kSchemes)
        if (label == e.digit || label == e.label) return &e;
    return nullptr;
}

// The digit that selects `scheme` again, whichever format is current.
const char* schemeDigit(int scheme) {
    for (const TschemeEntry& e : kSchemes)
        if (e.scheme == scheme || e.multiframeScheme == scheme) return e.digit;
    return nullptr;
}

bool isAbsolute(const std::string& name) {
    return (!name.empty() && (name[0] == '/' || name[0] == '\\')) || (name.size() > 1 && name[1] == ':');
}

}  // namespace

TcommonRenderGlobalsData::TcommonRenderGlobalsData() { refreshNaming(); }

void TcommonRenderGlobalsData::setNamingScheme(const Tstring& label) {
    const TschemeEntry* entry = findScheme(label);
    if (!entry) return;
    fNamingScheme = isMultiframeFormat() ? entry->multiframeScheme : entry->scheme;
}

void TcommonRenderGlobalsData::updateNamePattern() {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%u", unsigned(fFramePadding));
    const Tstring token = Tstring("%") + digits + "n";
    const Tstring& prefix = fImageFilePrefix;
    const Tstring extension = matchesWhole(prefix, prefixHasExtension()) ? "" : ".%e";
    const bool hasNumber = matchesWhole(prefix, prefixHasNumber());

    Tstring pattern;
    switch (fNamingScheme) {
        case kNameExt:
        case kMultiframeNameExt: pattern = prefix + extension; break;
        case kNameFrameExt: pattern = hasNumber ? prefix + extension : prefix + "." + token + extension; break;
        case kNameExtFrame: pattern = hasNumber ? prefix + extension : prefix + extension + "." + token; break;
        case kNameFrame: pattern = hasNumber ? prefix : prefix + "." + token; break;
        case kNameFrameNoDotExt: pattern = hasNumber ? prefix + extension : prefix + token + extension; break;
        case kNameUnderscoreFrameExt: pattern = hasNumber ? prefix + extension : prefix + "_" + token + extension; break;
        case kName:
        case kMultiframeName:
        default: pattern = prefix; break;
    }
    if (prefix.isEmpty()) pattern = Tstring("%s") + pattern;
    fNamePattern = pattern;
}

bool TcommonRenderGlobalsData::needCamera() const { return fSeveralCameras || !fFieldName.isEmpty(); }
bool TcommonRenderGlobalsData::needLayer() const { return fSeveralLayers || fSeveralPasses; }

void TcommonRenderGlobalsData::refreshNaming() {
    updateNamePattern();
    fNeedsFrameNumber = fNamingScheme != kName && fNamingScheme != kNameExt && !isMultiframeFormat();
    // Setters run one after another while settings are copied in; the user
    // hears about a repair once, when its result changes.
    Tstring fixed = TimageName::fixPatternQuietly(fNamePattern, fNeedsFrameNumber, needCamera(), needLayer());
    if (!(fixed == fFixedNamePattern) && !(fixed == TimageName::fixNumberPattern(fNamePattern)))
        TimageName::warnFixedPattern(fNamePattern, fixed);
    fFixedNamePattern = std::move(fixed);
}

void TcommonRenderGlobalsData::setImageName(const Tstring& prefix) {
    fImageFilePrefix = prefix;
    refreshNaming();
}

bool TcommonRenderGlobalsData::setImageFormat(const Tstring& format) {
    const TimageFormatInfo* info = TimageFormats::sParse(format);
    if (!info) return false;
    fImageFormat = info->number;
    // Selecting the scheme again moves "name" and "name.ext" to or from
    // their multi-frame forms.
    if (const char* digit = schemeDigit(fNamingScheme)) setNamingScheme(digit);
    refreshNaming();
    return true;
}

void TcommonRenderGlobalsData::setFieldName(const Tstring& field) {
    fFieldName = field;
    refreshNaming();
}

bool TcommonRenderGlobalsData::setNamingConvention(const Tstring& label) {
    if (!findScheme(label)) return false;
    setNamingScheme(label);
    refreshNaming();
    return true;
}

void TcommonRenderGlobalsData::setFramePadding(int padding) {
    fFramePadding = std::clamp(padding, 0, int(TimageName::kMaxFramePadding));
    refreshNaming();
}

void TcommonRenderGlobalsData::initializeImageNameSettings(const TrenderLayerState* layer, bool defaultLayerOnly) {
    fSeveralPasses = layer && layer->enabledPasses.length() > 1;
    fSeveralCameras = fRenderableCameras.length() > 1;
    fSeveralLayers = !defaultLayerOnly;
    refreshNaming();
}

void TcommonRenderGlobalsData::setFrameRange(float start, float end, float by) {
    fStartFrame = start;
    fEndFrame = end;
    fByFrame = by;
}

void TcommonRenderGlobalsData::setExtensionModifier(bool on, float startExtension, float byExtension) {
    fModifyExtension = on;
    fStartExtension = startExtension;
    fByExtension = byExtension;
}

bool TcommonRenderGlobalsData::isMultiframeFormat() const { return TimageFormats::sIsMultiframe(fImageFormat); }

Tstring TcommonRenderGlobalsData::getImfFormat() const {
    if (fImageFormat == TimageFormats::kIMF && !fImfPluginKey.isEmpty()) return fImfPluginKey;
    return TimageFormats::sImfName(fImageFormat);
}

Tstring TcommonRenderGlobalsData::getFormatExtension() const {
    if (fImageFormat == TimageFormats::kIMF && !fImfPluginKey.isEmpty()) return fImfPluginKey;
    return TimageFormats::sExtension(fImageFormat);
}

Tstring TcommonRenderGlobalsData::fileFormatExtension() const {
    std::string text = getFormatExtension().str();
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return Tstring(std::move(text));
}

Tstring TcommonRenderGlobalsData::composeName(const Tstring& pattern, TpathType pathType, TanimTime time,
                                              const Tstring& camera, const Tstring& extension,
                                              const TrenderLayerState* layer, const Tstring& scene,
                                              const Tstring& pass, const Tstring& field,
                                              bool keepNumberToken) const {
    const Tstring layerName = !layer ? Tstring() : layer->isDefaultLayer ? Tstring("masterLayer") : layer->name;

    int frame = 0;
    if (fAnimated) {
        double frames = time.asFrames();
        if (fModifyExtension) {
            // A zero step would divide by zero; it counts as one.
            const double by = fByFrame != 0.0f ? fByFrame : 1.0;
            frames = ((frames - fStartFrame) / by) * fByExtension + fStartExtension;
        }
        frame = TanimTime(frames).frameNumber();
    }

    Tstring ext;
    if (!extension.isEmpty())
        ext = extension;
    else if (!fCustomExtension.isEmpty())
        ext = fCustomExtension;
    else if (fExtensionLeftOut == 0)
        ext = getFormatExtension();

    Tstring name = TimageName::relativeFileName(pattern, frame, fAnimated, fFrameOverride, scene, ext, camera,
                                                layerName, pass, field, fVersionLabel, keepNumberToken);
    if (pathType == kPathTemporary) {
        if (isAbsolute(name.str()))
            TimageName::addBeforeExtension(name, "_tmp");
        else
            name = Tstring("tmp/") + name;
    }
    if ((pathType == kPathImages || pathType == kPathTemporary) && !isAbsolute(name.str()) &&
        !fImagesFolder.isEmpty()) {
        const bool slashed = fImagesFolder.str().back() == '/' || fImagesFolder.str().back() == '\\';
        name = fImagesFolder + (slashed ? "" : "/") + name;
    }
    return name;
}

Tstring TcommonRenderGlobalsData::getImageName(TpathType pathType, TanimTime time, const Tstring& camera,
                                               const Tstring& extension, const TrenderLayerState* layer,
                                               const Tstring& scene, bool keepNumberToken,
                                               bool useFixedPattern) const {
    return composeName(useFixedPattern ? fFixedNamePattern : fNamePattern, pathType, time, camera, extension, layer,
                       scene, fPassName, fFieldName, keepNumberToken);
}

void TcommonRenderGlobalsData::getAllImageNames(TpathType pathType, TanimTime time, const Tstring& extension,
                                                const TrenderLayerState* layer, const Tstring& scene,
                                                const TstringArray* passes, const TstringArray* fields,
                                                TstringArray& names) const {
    names.clear();
    if (fRenderableCameras.isEmpty()) return;

    TstringArray passList;
    if (passes && (passes->length() > 1 || (passes->length() == 1 && fSeveralPasses)))
        passList = *passes;
    else
        passList.append(Tstring());
    TstringArray fieldList;
    if (fields && !fields->isEmpty())
        fieldList = *fields;
    else
        fieldList.append(Tstring());

    // The flags describe the usual render; this enumeration may hold more
    // cameras, fields or passes than they said, and its names must not collide.
    const bool wantCamera = needCamera() || fRenderableCameras.length() > 1 || !fieldList[0].isEmpty();
    const bool wantLayer = needLayer() || passList.length() > 1;
    const Tstring pattern = (wantCamera == needCamera() && wantLayer == needLayer())
                                ? fFixedNamePattern
                                : TimageName::fixPatternQuietly(fNamePattern, fNeedsFrameNumber, wantCamera, wantLayer);

    for (const Tstring& pass : passList)
        for (const Tstring& camera : fRenderableCameras)
            for (const Tstring& field : fieldList)
                names.append(composeName(pattern, pathType, time, camera, extension, layer, scene, pass, field, false));
}
