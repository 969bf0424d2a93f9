// Pattern expansion and repair.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "framework/host/command_engine.h"
#include "settings/image_name.h"

struct TimageNameProbe {
    static Tstring ending(const Tstring& name) { return TimageName::matchesEndingPattern(name); }
    static Tstring replaceFormat(Tstring name, const Tstring& key, const Tstring& tag, const Tstring& value) {
        TimageName::replaceFormatString(name, key, tag, value);
        return name;
    }
};

namespace {

// The inputs of one expansion; the defaults are those of the worked examples.
struct Tinputs {
    std::string scene = "shot";
    std::string camera = "persp";
    std::string layer;
    std::string pass;
    std::string field;
    std::string extension = "iff";
    std::string version;
    std::string frameOverride;
    int frame = 7;
    bool animated = true;
    bool keepNumber = false;
};

std::string expand(const std::string& pattern, const Tinputs& in = {}) {
    return TimageName::relativeFileName(pattern, in.frame, in.animated, in.frameOverride, in.scene, in.extension,
                                        in.camera, in.layer, in.pass, in.field, in.version, in.keepNumber)
        .str();
}

std::string fix(const std::string& pattern, bool frame, bool camera, bool layer) {
    return TimageName::fixPattern(pattern, frame, camera, layer).str();
}

struct TexpandCase {
    const char* pattern;
    Tinputs in;
    const char* expected;
};

void runCases(const std::vector<TexpandCase>& cases) {
    for (const TexpandCase& c : cases) EXPECT_EQ(expand(c.pattern, c.in), c.expected) << "pattern " << c.pattern;
}

Tinputs with(auto change) {
    Tinputs in;
    change(in);
    return in;
}

}  // namespace

TEST(ImageNameExpansion, TokensTagsAndTheValuesTheyTake) {
    const Tinputs fgV2 = with([](Tinputs& i) {
        i.layer = "fg";
        i.version = "v2";
    });
    runCases({
        // Tags and percent tokens give the same values.
        {"<Scene>/<Layer>/<Camera>.<Version>.<Extension>", fgV2, "shot/fg/persp.v2.iff"},
        {"%s/%l/%c.%v.%e", fgV2, "shot/fg/persp.v2.iff"},
        // Unknown tokens and tags stay as they are; tokens are case-sensitive.
        {"%q<Shot>%s", fgV2, "%q<Shot>shot"},
        {"%S<scene>", fgV2, "%S<scene>"},
        // An empty layer leaves no trace.
        {"%/l%s%_l<Layer>.%e", {}, "shot.iff"},
        {"%/l%s%_l<Layer>.%e", with([](Tinputs& i) { i.layer = "fg"; }), "fg/shot_fgfg.iff"},
        // Pass and field join the layer and the camera.
        {"%l/%c", with([](Tinputs& i) { i.layer = "fg"; i.pass = "specular"; }), "fg_specular/persp"},
        {"%l/%c", with([](Tinputs& i) { i.pass = "specular"; }), "specular/persp"},
        {"%_l%s", with([](Tinputs& i) { i.pass = "specular"; }), "_specularshot"},
        {"%l/%c", with([](Tinputs& i) { i.field = "odd"; }), "/persp_odd"},
        {"%/c%s", with([](Tinputs& i) { i.camera = ""; i.field = "even"; }), "even/shot"},
        // Namespace and path separators in values become underscores...
        {"%s", with([](Tinputs& i) { i.scene = "a:b|c"; }), "a_b_c"},
        {"%c", with([](Tinputs& i) { i.camera = "|group|cam:shape"; }), "_group_cam_shape"},
        {"%/l%s", with([](Tinputs& i) { i.layer = "ns:fg"; i.pass = "p|q"; }), "ns_fg_p_q/shot"},
        {"<Camera>", with([](Tinputs& i) { i.camera = "x:y"; i.field = "o|d"; }), "x_y_o_d"},
        // ...and only in values: the pattern's own text stands.
        {"C:/out|x/%s", with([](Tinputs& i) { i.scene = "a:b"; }), "C:/out|x/a_b"},
    });
    EXPECT_EQ(TimageNameProbe::replaceFormat("%/k", "k", "<K>", "n:s").str(), "n_s/");
}

TEST(ImageNameExpansion, SeparatorsStandOnlyBeforeAValue) {
    struct Tcase {
        const char* token;
        const char* withValue;  // value "v"
    };
    const Tcase forms[] = {{"%", "v"}, {"%_", "_v"}, {"%-", "-v"}, {"%/", "v/"}, {"%.", ".v"}};
    // Each key and the input it stands for.
    const std::pair<char, std::string Tinputs::*> keys[] = {
        {'s', &Tinputs::scene}, {'l', &Tinputs::layer}, {'c', &Tinputs::camera}, {'e', &Tinputs::extension}, {'v', &Tinputs::version}};
    for (const auto& [key, field] : keys) {
        for (const Tcase& form : forms) {
            const std::string pattern = std::string("A") + form.token + key + "B";
            Tinputs full, empty;
            full.*field = "v";
            empty.*field = "";
            EXPECT_EQ(expand(pattern, full), std::string("A") + form.withValue + "B") << pattern;
            EXPECT_EQ(expand(pattern, empty), "AB") << pattern << " with an empty value";
        }
    }
}

TEST(ImageNameFrames, TokenFormsSeparatorsAndEveryTokenReplaced) {
    runCases({
        {"%s.#", {}, "shot.0007"},  // "#" is four digits, not one
        {"%s%.4n", {}, "shot.0007"},
        {"%/4n%s", {}, "0007/shot"},
        {"%s%-3n", {}, "shot-007"},
        {"%s%_n", {}, "shot_7"},
        {"%s%n", with([](Tinputs& i) { i.frame = 1234; }), "shot1234"},
        {"%s.%2n", with([](Tinputs& i) { i.frame = 1234; }), "shot.1234"},  // width is a minimum
        {"%s.%004n", {}, "shot.0007"},
        {"%s.@@@@@@", {}, "shot.000007"},
        {"%s.@@@@@@@", {}, "shot.0000077"},  // seven "@": six, then one
        {"%s.%4n.%2n", {}, "shot.0007.07"},
        {"%/n%s.%4n.%e", {}, "7/shot.0007.iff"},
        {"%n%n%n", with([](Tinputs& i) { i.frame = 3; }), "333"},
        {"#/@@/%s", {}, "0007/07/shot"},
    });
}

TEST(ImageNameFrames, PaddedDigitsReadBackAsTheFrame) {
    // Two roads to one number: the written digits, read back, give the frame,
    // and their count is the width (with the sign counted) or the natural one.
    for (int frame : {-12345, -1000, -999, -100, -7, -1, 0, 1, 7, 99, 100, 9999, 10000, 2147483647, -2147483647 - 1}) {
        for (int width : {0, 1, 2, 3, 4, 5, 8}) {
            const std::string pattern = std::string("%") + std::to_string(width) + "n";
            const std::string out = expand(pattern, with([&](Tinputs& i) { i.frame = frame; }));
            ASSERT_FALSE(out.empty());
            EXPECT_EQ(std::stoll(out), frame) << out;
            const size_t natural = std::to_string(frame).size();
            EXPECT_EQ(out.size(), std::max<size_t>(natural, size_t(width))) << frame << " at width " << width;
            EXPECT_EQ(out[0] == '-', frame < 0) << out;
        }
    }
}

TEST(ImageNameFrames, NotAnimatedOverrideAndKeep) {
    const Tinputs still = with([](Tinputs& i) { i.animated = false; });
    runCases({
        {"%s.%4n.%e", still, "shot..iff"},  // the token goes, the dot stays
        {"%s%.4n.%e", still, "shot.iff"},   // so a separator belongs in the token
        {"%s%_4n%/n.%e", still, "shot.iff"},
        // An override replaces the separator too, animated or not.
        {"%s%_4n.%e", with([](Tinputs& i) { i.frameOverride = "pre"; }), "shotpre.iff"},
        {"%s%_4n.%e", with([](Tinputs& i) { i.frameOverride = "pre"; i.animated = false; }), "shotpre.iff"},
        {"%/n%s.%n", with([](Tinputs& i) { i.frameOverride = "x"; }), "xshot.x"},
        // An override that holds a token is written as it is, once.
        {"%s.%4n", with([](Tinputs& i) { i.frameOverride = "%n"; }), "shot.%n"},
        {"%s.%4n.%e", with([](Tinputs& i) { i.keepNumber = true; }), "shot.%4n.iff"},
        {"%s.#.%e", with([](Tinputs& i) { i.keepNumber = true; }), "shot.%4n.iff"},
    });
    // Another key reaches the same rules.
    Tstring name("a.%3f.%f");
    TimageName::replaceNumberFormatString(name, "f", 5, true, "");
    EXPECT_EQ(name.str(), "a.005.5");
}

TEST(ImageNameFrames, OverlongPatternsAreLeftAloneWithoutCrashing) {
    TcommandCapture quiet;  // repairs warn
    // At the limit the frame tokens still expand.
    std::string atLimit(TimageName::kMaxPatternLength - 3, 'a');
    atLimit += "%4n";
    EXPECT_EQ(expand(atLimit), std::string(TimageName::kMaxPatternLength - 3, 'a') + "0007");
    // Far beyond it, the text tokens still expand and the frame token stays.
    std::string huge(200000, 'b');
    const std::string out = expand(huge + "%s%4n");
    EXPECT_EQ(out, huge + "shot%4n");
    EXPECT_EQ(fix(huge, false, false, false), huge);
    // A width beyond reason is clamped.
    EXPECT_EQ(expand("%99999999999999999999n").size(), size_t(TimageName::kMaxFramePadding));
}

TEST(ImageNamePatternRepair, AddsWhatIsMissing) {
    TcommandCapture quiet;  // repairs warn
    struct Tcase {
        const char* pattern;
        bool frame, camera, layer;
        const char* expected;
    };
    const Tcase cases[] = {
        {"render", false, true, false, "%/crender"},
        {"render", false, false, true, "%/lrender"},
        {"render", false, true, true, "%/l%/crender"},  // the layer folder holds the camera folders
        {"render", true, false, false, "render%_4n"},
        {"%s.%e", true, false, false, "%s.%_4n%e"},
        {"%s%.e", true, false, false, "%s%_4n%.e"},
        {"%s_%e", true, false, false, "%s_%_4n%e"},
        {"#.%e", true, false, false, "%4n.%e"},
        // Anything that names the camera, layer or frame satisfies the need.
        {"<Camera>/<Layer>/%s.%3n", true, true, true, "<Camera>/<Layer>/%s.%3n"},
        {"%_c%-l%s%.n", true, true, true, "%_c%-l%s%.n"},
        {"%/c%/l%s@", true, true, true, "%/c%/l%s%n"},
        {"", true, true, true, "%/l%/c%_4n"},
        {"render", false, false, false, "render"},
    };
    for (const Tcase& c : cases)
        EXPECT_EQ(fix(c.pattern, c.frame, c.camera, c.layer), c.expected) << c.pattern;
    // The shorthand alone is rewritten without asking for a frame.
    EXPECT_EQ(TimageName::fixNumberPattern("img_@@@.%e").str(), "img_%3n.%e");
}

TEST(ImageNamePatternRepair, RepairedPatternsNeedNoFurtherRepairAndKeepNamesApart) {
    TcommandCapture quiet;  // repairs warn
    const char* patterns[] = {"render", "%s", "%s.%e", "%s%.e", "img.#.%e", "<Scene>_<Extension>", "a/b/%s",
                              "%/c%s", "%l_%s", "%s.%e.%2n", "%s.@@"};
    for (const char* p : patterns) {
        for (int needs = 0; needs < 8; ++needs) {
            const bool frame = needs & 1, camera = needs & 2, layer = needs & 4;
            const std::string once = fix(p, frame, camera, layer);
            EXPECT_EQ(fix(once, frame, camera, layer), once) << p;
            // What the need asks for now tells images apart.
            std::set<std::string> names;
            unsigned count = 0;
            for (int f : {1, 2})
                for (const char* cam : {"left", "right"})
                    for (const char* lay : {"fg", "bg"}) {
                        if ((!frame && f == 2) || (!camera && cam[0] == 'r') || (!layer && lay[0] == 'b')) continue;
                        names.insert(expand(once, with([&](Tinputs& i) {
                                                i.frame = f;
                                                i.camera = cam;
                                                i.layer = lay;
                                            })));
                        ++count;
                    }
            EXPECT_EQ(names.size(), count) << p << " fixed as " << once;
        }
    }
}

TEST(ImageNamePatternRepair, WarnsOnlyWhenTokensAreAddedAndReportsExpansionsOnRequest) {
    const char* key = "s_TimageNameStrings.rImageNameFixedPatternWarning";
    EXPECT_TRUE(TcommandEngine::hasCatalogueText(key));
    TcommandCapture capture;
    fix("img.#.%e", true, false, false);  // shorthand only
    fix("%/c%s", false, true, false);     // already safe
    EXPECT_EQ(capture.countKey(key), 0u);
    fix("img", true, true, false);
    ASSERT_EQ(capture.countKey(key), 1u);
    const std::string& text = capture.messages().back().text;
    EXPECT_NE(text.find("img"), std::string::npos);
    EXPECT_NE(text.find("%/cimg%_4n"), std::string::npos);
    EXPECT_EQ(capture.messages().back().severity, TmessageSeverity::kWarning);

    const char* expansion = "s_TimageNameStrings.rImageNameFilePatternToNameWarning";
    expand("%s.%e");
    EXPECT_EQ(capture.countKey(expansion), 0u);
    TimageName::sSetReportExpansions(true);
    expand("%s.%e");
    TimageName::sSetReportExpansions(false);
    ASSERT_EQ(capture.countKey(expansion), 1u);
    EXPECT_NE(capture.messages().back().text.find("shot.iff"), std::string::npos);
}

TEST(ImageNameEndings, FourEndingsInOrder) {
    struct Tcase {
        const char* name;
        const char* ending;
    };
    // The leading ".*" is greedy, so an optional separator before the
    // ending is left with the rest of the name.
    const Tcase cases[] = {
        {"%s.%4n.%e", "%4n.%e"},   // frame then extension
        {"%s%_n%.e", "%_n%.e"},
        {"%s.%e", "%e"},           // extension alone
        {"%s%.e", "%.e"},
        {"%s.%e.%4n", "%e.%4n"},   // extension then frame
        {"%s%-e%_2n", "%-e%_2n"},
        {"%s.%4n", "%4n"},         // frame alone
        {"%s", ""},
        {"%s.%e.txt", ""},
        {"%s/%4n", "%4n"},
        {"%s%/4n", ""},            // a folder token ends nothing
    };
    for (const Tcase& c : cases) EXPECT_EQ(TimageNameProbe::ending(c.name).str(), c.ending) << c.name;
}

TEST(ImageNameThreads, FirstUseFromManyThreadsAgrees) {
    TcommandCapture quiet;  // repairs warn
    // The expressions are built on first use; threads racing into it must
    // all see them whole (run alone, nothing here uses them first).
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 2000; ++i) {
                Tinputs in = with([&](Tinputs& x) { x.frame = i; });
                const std::string name = expand("%/c%s.%4n.%e", in);
                char digits[16];
                std::snprintf(digits, sizeof digits, "%04d", i);
                mismatches[t] += name != "persp/shot." + std::string(digits) + ".iff";
                mismatches[t] += fix("%s", true, true, false) != "%/c%s%_4n";
            }
        });
    for (auto& th : threads) th.join();
    for (int m : mismatches) EXPECT_EQ(m, 0);
}
