#pragma once
// TimageName: expands image-name patterns such as "%s.%4n.%e" into the file
// name of one image, and repairs patterns so that several cameras, layers or
// frames cannot write over each other's files.
//
// All operations are static. The only state is a table of compiled regular
// expressions, built once on first use and read-only afterwards, so every
// operation may be called from any thread.
#include "framework/host/tstring.h"

class TimageName {
public:
    // Texts longer than this are not file names; the matching steps treat
    // them as matching nothing instead of running the matcher over them.
    static constexpr unsigned kMaxPatternLength = 4096;
    // A frame width beyond this is clamped: nobody pads a frame number to
    // more digits than a 64-bit count holds, many times over.
    static constexpr unsigned kMaxFramePadding = 64;

    // The file name of one image. Shorthands are expanded first, then the
    // scene, layer, camera, extension and version tokens, then the frame
    // tokens. `frame` is signed: frames before zero are
    // written with a leading "-". With `keepNumberToken` the frame tokens are
    // left in the result for a later pass.
    static Tstring relativeFileName(const Tstring& pattern, int frame, bool animated, const Tstring& frameOverride,
                                    const Tstring& scene, const Tstring& extension, const Tstring& camera,
                                    const Tstring& layer, const Tstring& pass, const Tstring& field,
                                    const Tstring& version, bool keepNumberToken);

    // Replaces every frame token "%[sep][width]<key>" of `name`.
    static void replaceNumberFormatString(Tstring& name, const Tstring& key, int frame, bool animated,
                                          const Tstring& frameOverride);

    // Adds what the pattern lacks: a camera folder, a layer folder, a frame
    // token. Shorthands ("#", "@@@") are expanded first.
    // When it adds tokens it warns the user, with the pattern before and after.
    static Tstring fixPattern(const Tstring& pattern, bool needFrame, bool needCamera, bool needLayer);
    // The same without the warning, for callers that rebuild patterns often
    // and tell the user only when the result changes.
    static Tstring fixPatternQuietly(const Tstring& pattern, bool needFrame, bool needCamera, bool needLayer);
    static void warnFixedPattern(const Tstring& pattern, const Tstring& fixed);

    // "#" and runs of "@" become frame tokens.
    static Tstring fixNumberPattern(const Tstring& pattern);

    // Puts `addition` before the extension of the last path component, or at
    // the end when that component has none.
    static void addBeforeExtension(Tstring& name, const Tstring& addition);

    // When on, relativeFileName posts the pattern and its expansion as an
    // information message. Off by default: a render names many files.
    static void sSetReportExpansions(bool on);
    static bool sReportExpansions();

private:
    static void replaceFormatString(Tstring& name, const Tstring& key, const Tstring& tag, const Tstring& value);
    // The frame-and-extension ending of a name ("%4n.%e", "%e", ...), or empty.
    static Tstring matchesEndingPattern(const Tstring& name);

    friend struct TimageNameProbe;  // tests reach the private steps through this
};
