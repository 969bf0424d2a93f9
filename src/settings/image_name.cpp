#include "settings/image_name.h"

#include <algorithm>
#include <atomic>
#include <regex>
#include <string>
#include <string_view>

#include "framework/host/command_engine.h"

namespace {

const TcatalogueEntry kPatternToName{"s_TimageNameStrings.rImageNameFilePatternToNameWarning",
                                     "Image file name pattern \"^1s\" gives \"^2s\"."};
const TcatalogueEntry kFixedPattern{"s_TimageNameStrings.rImageNameFixedPatternWarning",
                                    "Image file name pattern \"^1s\" was changed to \"^2s\" so that images do not "
                                    "overwrite each other."};

std::atomic<bool> gReportExpansions{false};

// Every expression the naming code matches with, compiled once. The pieces of
// the ending patterns: an extension token and a frame token, each with the
// separator that may stand before it.
#define SN_ENDING_E "\\.?%[-_.]?e"
#define SN_ENDING_N "[._]?%[-_.]?[0-9]*n"

struct TnamingRegexps {
    std::regex endings[4]{
        std::regex(".*(" SN_ENDING_N SN_ENDING_E ")$"),
        std::regex(".*(" SN_ENDING_E ")$"),
        std::regex(".*(" SN_ENDING_E SN_ENDING_N ")$"),
        std::regex(".*(" SN_ENDING_N ")$"),
    };
    std::regex frameToken{".*%([-_./]?)([0-9]*)n.*"};
    std::regex hasCameraToken{".*%[-_./]?c.*"};
    std::regex hasLayerToken{".*%[-_./]?l.*"};
    std::regex hasFrameToken{".*%[-_./]?[0-9]*n.*"};
};
#undef SN_ENDING_E
#undef SN_ENDING_N

const TnamingRegexps& regexps() {
    static const TnamingRegexps table;
    return table;
}

// The matcher recurses once per character; texts beyond the limit are not
// names and are treated as matching nothing.
bool fullMatch(const std::string& text, const std::regex& re) {
    return text.size() <= TimageName::kMaxPatternLength && std::regex_match(text, re);
}

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    if (from.empty()) return;
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}

std::string escapeForRegex(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) out += '\\';
        out += c;
    }
    return out;
}

// The value as it may stand in a file name: namespaces (":") and object
// paths ("|") would otherwise make folders or illegal names.
std::string fileSafe(std::string_view value) {
    std::string out(value);
    std::replace(out.begin(), out.end(), ':', '_');
    std::replace(out.begin(), out.end(), '|', '_');
    return out;
}

void replaceFormat(std::string& name, std::string_view key, std::string_view tag, std::string_view rawValue) {
    if (name.find('%') == std::string::npos && (tag.empty() || name.find(tag) == std::string::npos)) return;
    const std::string value = fileSafe(rawValue);
    const bool empty = value.empty();
    std::string token = "%";
    token += key;
    replaceAll(name, token, value);  // only where no separator stands between
    for (char separator : {'_', '-', '/', '.'}) {
        token = "%";
        token += separator;
        token += key;
        if (name.find(token) == std::string::npos) continue;
        std::string replacement;
        if (!empty) {
            if (separator == '/') {
                replacement = value + "/";
            } else {
                replacement = separator;
                replacement += value;
            }
        }
        replaceAll(name, token, replacement);
    }
    replaceAll(name, tag, value);
}

std::string frameDigits(int frame, unsigned width) {
    const bool negative = frame < 0;
    const long long magnitude = negative ? -static_cast<long long>(frame) : frame;
    std::string digits = std::to_string(magnitude);
    // The minus sign takes one of the padded places.
    const unsigned padded = negative ? (width > 0 ? width - 1 : 0) : width;
    if (digits.size() < padded) digits.insert(0, padded - digits.size(), '0');
    if (negative) digits.insert(0, 1, '-');
    return digits;
}

void replaceNumber(std::string& name, std::string_view key, int frame, bool animated, std::string_view frameOverride) {
    if (key.empty() || name.find('%') == std::string::npos) return;
    std::regex ownRegex;
    const std::regex* re = &regexps().frameToken;
    if (key != "n") {
        ownRegex = std::regex(".*%([-_./]?)([0-9]*)" + escapeForRegex(key) + ".*");
        re = &ownRegex;
    }
    // Each replacement removes one "%", so this bounds the loop; it also stops
    // an override that itself holds a token from being expanded forever.
    size_t budget = size_t(std::count(name.begin(), name.end(), '%'));
    std::smatch match;
    while (budget-- > 0 && name.size() <= TimageName::kMaxPatternLength && std::regex_match(name, match, *re)) {
        const size_t start = size_t(match.position(1)) - 1;  // the "%"
        const size_t end = size_t(match.position(2) + match.length(2)) + key.size();
        const std::string separator = match.str(1);
        unsigned width = 0;
        for (char c : match.str(2)) width = std::min(width * 10 + unsigned(c - '0'), TimageName::kMaxFramePadding);

        std::string replacement;
        if (!frameOverride.empty()) {
            replacement = frameOverride;
        } else if (animated) {
            const std::string digits = frameDigits(frame, width);
            replacement = separator == "/" ? digits + "/" : separator + digits;
        }
        name.replace(start, end - start, replacement);
    }
}

}  // namespace

void TimageName::sSetReportExpansions(bool on) { gReportExpansions.store(on, std::memory_order_relaxed); }
bool TimageName::sReportExpansions() { return gReportExpansions.load(std::memory_order_relaxed); }

void TimageName::replaceFormatString(Tstring& name, const Tstring& key, const Tstring& tag, const Tstring& value) {
    std::string text = name.str();
    replaceFormat(text, key.view(), tag.view(), value.view());
    name = Tstring(std::move(text));
}

void TimageName::replaceNumberFormatString(Tstring& name, const Tstring& key, int frame, bool animated,
                                           const Tstring& frameOverride) {
    std::string text = name.str();
    replaceNumber(text, key.view(), frame, animated, frameOverride.view());
    name = Tstring(std::move(text));
}

Tstring TimageName::relativeFileName(const Tstring& pattern, int frame, bool animated, const Tstring& frameOverride,
                                     const Tstring& scene, const Tstring& extension, const Tstring& camera,
                                     const Tstring& layer, const Tstring& pass, const Tstring& field,
                                     const Tstring& version, bool keepNumberToken) {
    // Shorthands ("#", "@@@") come first, so a pattern need not be fixed
    // before it names a file.
    std::string name = fixNumberPattern(pattern).str();
    replaceFormat(name, "s", "<Scene>", scene.view());

    std::string layerValue = layer.str();
    if (!pass.isEmpty()) layerValue = layer.isEmpty() ? pass.str() : layer.str() + "_" + pass.str();
    replaceFormat(name, "l", "<Layer>", layerValue);

    std::string cameraValue = camera.str();
    if (!field.isEmpty()) cameraValue = camera.isEmpty() ? field.str() : camera.str() + "_" + field.str();
    replaceFormat(name, "c", "<Camera>", cameraValue);

    replaceFormat(name, "e", "<Extension>", extension.view());
    replaceFormat(name, "v", "<Version>", version.view());
    if (!keepNumberToken) replaceNumber(name, "n", frame, animated, frameOverride.view());

    Tstring result(std::move(name));
    if (sReportExpansions()) theCommandEngine().displayInfo(kPatternToName, {pattern, result});
    return result;
}

Tstring TimageName::fixNumberPattern(const Tstring& pattern) {
    std::string text = pattern.str();
    if (text.find_first_of("#@") == std::string::npos) return pattern;
    // Longer runs first, so "@@@" is one token and not three.
    static constexpr std::pair<std::string_view, std::string_view> kShorthands[] = {
        {"#", "%4n"},      {"@@@@@@", "%6n"}, {"@@@@@", "%5n"}, {"@@@@", "%4n"},
        {"@@@", "%3n"},    {"@@", "%2n"},     {"@", "%n"},
    };
    for (auto [from, to] : kShorthands) replaceAll(text, from, to);
    return Tstring(std::move(text));
}

Tstring TimageName::matchesEndingPattern(const Tstring& name) {
    if (name.length() > kMaxPatternLength) return {};
    std::smatch match;
    for (const std::regex& ending : regexps().endings)
        if (std::regex_match(name.str(), match, ending)) return Tstring(match.str(1));
    return {};
}

Tstring TimageName::fixPattern(const Tstring& pattern, bool needFrame, bool needCamera, bool needLayer) {
    Tstring fixed = fixPatternQuietly(pattern, needFrame, needCamera, needLayer);
    // Expanding shorthands changes nothing a user would notice; only added
    // tokens are worth telling.
    if (!(fixed == fixNumberPattern(pattern))) warnFixedPattern(pattern, fixed);
    return fixed;
}

void TimageName::warnFixedPattern(const Tstring& pattern, const Tstring& fixed) {
    theCommandEngine().displayWarning(kFixedPattern, {pattern, fixed});
}

Tstring TimageName::fixPatternQuietly(const Tstring& pattern, bool needFrame, bool needCamera, bool needLayer) {
    std::string r = fixNumberPattern(pattern).str();
    const TnamingRegexps& re = regexps();
    if (needCamera && !fullMatch(r, re.hasCameraToken) && r.find("<Camera>") == std::string::npos) r.insert(0, "%/c");
    // Inserted after the camera so that a layer folder holds camera folders.
    if (needLayer && !fullMatch(r, re.hasLayerToken) && r.find("<Layer>") == std::string::npos) r.insert(0, "%/l");
    if (needFrame && !fullMatch(r, re.hasFrameToken)) {
        const Tstring ending = matchesEndingPattern(Tstring(r));
        r.insert(r.size() - ending.length(), "%_4n");
    }
    return Tstring(std::move(r));
}

void TimageName::addBeforeExtension(Tstring& name, const Tstring& addition) {
    std::string text = name.str();
    const size_t dot = text.rfind('.');
    const size_t slash = text.rfind('/');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
        text.insert(dot, addition.str());
    else
        text += addition.str();
    name = Tstring(std::move(text));
}
