// The naming side of the render settings snapshot.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "framework/host/command_engine.h"
#include "settings/image_format.h"
#include "settings/render_globals_data.h"

namespace {

// Settings with the given prefix, scheme and padding, for a still format.
TcommonRenderGlobalsData settings(const char* prefix, const char* scheme, int padding = 4) {
    TcommonRenderGlobalsData d;
    EXPECT_TRUE(d.setImageFormat("kIFF"));
    EXPECT_TRUE(d.setNamingConvention(scheme));
    d.setFramePadding(padding);
    d.setImageName(prefix);
    return d;
}

std::vector<std::string> strings(const TstringArray& a) {
    std::vector<std::string> out;
    for (const Tstring& s : a) out.push_back(s.str());
    return out;
}

// Each test starts without messages on stderr; repairs warn.
class RenderGlobalsNaming : public ::testing::Test {
protected:
    TcommandCapture fQuiet;
};

}  // namespace

TEST_F(RenderGlobalsNaming, EachSchemeWithAndWithoutANumberInThePrefix) {
    struct Tcase {
        const char* digit;
        const char* label;
        const char* plain;     // prefix "img"
        const char* numbered;  // prefix "img.%3n"
        const char* empty;     // empty prefix
    };
    const Tcase cases[] = {
        {"1", "name", "img", "img.%3n", "%s"},
        {"2", "name.ext", "img.%e", "img.%3n.%e", "%s.%e"},
        {"3", "name.#.ext", "img.%4n.%e", "img.%3n.%e", "%s.%4n.%e"},
        {"4", "name.ext.#", "img.%e.%4n", "img.%3n.%e", "%s.%e.%4n"},
        {"5", "name.#", "img.%4n", "img.%3n", "%s.%4n"},
        {"6", "name#.ext", "img%4n.%e", "img.%3n.%e", "%s%4n.%e"},
        {"7", "name_#.ext", "img_%4n.%e", "img.%3n.%e", "%s_%4n.%e"},
    };
    for (const Tcase& c : cases) {
        for (const char* selector : {c.digit, c.label}) {
            EXPECT_EQ(settings("img", selector).namePattern().str(), c.plain) << selector;
            EXPECT_EQ(settings("img.%3n", selector).namePattern().str(), c.numbered) << selector;
            EXPECT_EQ(settings("", selector).namePattern().str(), c.empty) << selector;
        }
    }
    // A prefix that places the extension itself gets none added.
    EXPECT_EQ(settings("img.%e", "name.#.ext").namePattern().str(), "img.%e.%4n");
    EXPECT_EQ(settings("img%_e", "name.ext").namePattern().str(), "img%_e");
    // The padding is the width of the frame token.
    EXPECT_EQ(settings("", "3", 1).namePattern().str(), "%s.%1n.%e");
    EXPECT_EQ(settings("", "3", -5).namePattern().str(), "%s.%0n.%e");
}

TEST_F(RenderGlobalsNaming, UnknownSchemeOrFormatChangesNothing) {
    TcommonRenderGlobalsData d = settings("img", "name.#.ext");
    const std::string before = d.getNameFixedPattern().str();
    EXPECT_FALSE(d.setNamingConvention("8"));
    EXPECT_FALSE(d.setNamingConvention("NAME"));
    EXPECT_FALSE(d.setImageFormat("kNOPE"));
    EXPECT_FALSE(d.setImageFormat("99"));
    EXPECT_EQ(d.namingScheme(), TcommonRenderGlobalsData::kNameFrameExt);
    EXPECT_EQ(d.imageFormat(), int(TimageFormats::kIFF));
    EXPECT_EQ(d.getNameFixedPattern().str(), before);
}

TEST_F(RenderGlobalsNaming, MultiframeFormatsTakeTheirOwnSchemes) {
    for (const TimageFormatInfo& format : TimageFormats::sAll()) {
        if (!format.multiFrame) continue;
        TcommonRenderGlobalsData d = settings("clip", "name.ext");
        ASSERT_TRUE(d.setImageFormat(format.key));
        EXPECT_TRUE(d.isMultiframeFormat());
        EXPECT_EQ(d.namingScheme(), TcommonRenderGlobalsData::kMultiframeNameExt) << format.key;
        EXPECT_EQ(d.namePattern().str(), "clip.%e");
        EXPECT_TRUE(d.setNamingConvention("name"));
        EXPECT_EQ(d.namingScheme(), TcommonRenderGlobalsData::kMultiframeName) << format.key;
        // One file holds every frame: no frame token is forced in.
        EXPECT_TRUE(d.setNamingConvention("name.#.ext"));
        EXPECT_EQ(d.namingScheme(), TcommonRenderGlobalsData::kNameFrameExt);
        EXPECT_FALSE(d.needsFrameNumber());
        EXPECT_TRUE(d.setNamingConvention("2"));
        EXPECT_EQ(d.getNameFixedPattern().str(), "clip.%e");
        // Back to a still format, the scheme is the plain one again.
        ASSERT_TRUE(d.setImageFormat("png"));
        EXPECT_EQ(d.namingScheme(), TcommonRenderGlobalsData::kNameExt) << format.key;
    }
    TcommonRenderGlobalsData d = settings("clip", "name");
    d.setImageFormat("avi");
    EXPECT_EQ(d.namingScheme(), TcommonRenderGlobalsData::kMultiframeName);
    d.setAnimated(true);
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(3), "persp", "", nullptr, "shot").str(), "clip");
}

TEST_F(RenderGlobalsNaming, FixedPatternFollowsTheFlags) {
    TcommonRenderGlobalsData d = settings("img", "name.ext");
    EXPECT_FALSE(d.needsFrameNumber());
    EXPECT_EQ(d.getNameFixedPattern().str(), "img.%e");

    d.setFieldName("odd");  // fields need the camera in the name
    EXPECT_EQ(d.getNameFixedPattern().str(), "%/cimg.%e");
    d.setFieldName("");
    EXPECT_EQ(d.getNameFixedPattern().str(), "img.%e");

    d.setRenderableCameras({"left", "right"});
    TrenderLayerState layer{"fg", false, {"diffuse", "specular"}};
    d.initializeImageNameSettings(&layer, true);
    EXPECT_TRUE(d.severalCameras());
    EXPECT_TRUE(d.severalPasses());
    EXPECT_FALSE(d.severalLayers());
    EXPECT_EQ(d.getNameFixedPattern().str(), "%/l%/cimg.%e");

    layer.enabledPasses = {"beauty"};
    d.setRenderableCameras({"persp"});
    d.initializeImageNameSettings(&layer, false);  // other layers render
    EXPECT_FALSE(d.severalPasses());
    EXPECT_FALSE(d.severalCameras());
    EXPECT_TRUE(d.severalLayers());
    EXPECT_EQ(d.getNameFixedPattern().str(), "%/limg.%e");

    d.setImageName("img.%3n");  // a number already there is kept, and is enough
    d.setNamingConvention("name");
    EXPECT_EQ(d.getNameFixedPattern().str(), "%/limg.%3n");
}

TEST_F(RenderGlobalsNaming, RepairIsReportedOncePerChange) {
    const char* key = "s_TimageNameStrings.rImageNameFixedPatternWarning";
    TcommonRenderGlobalsData d = settings("img", "name.ext");
    const unsigned before = fQuiet.countKey(key);
    d.setFieldName("odd");
    d.setFramePadding(3);
    d.setImageFormat("png");
    EXPECT_EQ(fQuiet.countKey(key), before + 1);
}

TEST_F(RenderGlobalsNaming, ImageNameFrameAndExtension) {
    TcommonRenderGlobalsData d = settings("%s", "name.#.ext");
    const TanimTime t(7);
    // Not animated: the frame token goes.
    EXPECT_EQ(d.getImageName(kPathRelative, t, "persp", "", nullptr, "shot").str(), "shot..iff");
    d.setAnimated(true);
    EXPECT_EQ(d.getImageName(kPathRelative, t, "persp", "", nullptr, "shot").str(), "shot.0007.iff");
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(6.6), "persp", "", nullptr, "shot").str(), "shot.0007.iff");
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(-7), "persp", "", nullptr, "shot").str(), "shot.-007.iff");
    EXPECT_EQ(d.getImageName(kPathRelative, t, "persp", "", nullptr, "shot", true).str(), "shot.%4n.iff");

    // Extension: the argument, else the custom one, else the format's unless left out.
    EXPECT_EQ(d.getImageName(kPathRelative, t, "persp", "exr", nullptr, "shot").str(), "shot.0007.exr");
    d.setExtensionLeftOut(1);
    EXPECT_EQ(d.getImageName(kPathRelative, t, "persp", "", nullptr, "shot").str(), "shot.0007.");
    d.setCustomExtension("raw");
    EXPECT_EQ(d.getImageName(kPathRelative, t, "persp", "", nullptr, "shot").str(), "shot.0007.raw");
    EXPECT_EQ(d.getImageName(kPathRelative, t, "persp", "exr", nullptr, "shot").str(), "shot.0007.exr");

    // The frame override replaces the number.
    d.setFrameOverride("preview");
    EXPECT_EQ(d.getImageName(kPathRelative, t, "persp", "", nullptr, "shot").str(), "shot.preview.raw");
}

TEST_F(RenderGlobalsNaming, RenumberedFramesMapTheRangeLinearly) {
    TcommonRenderGlobalsData d = settings("f", "name.#", 0);
    d.setAnimated(true);
    d.setFrameRange(10, 20, 2);
    d.setExtensionModifier(true, 100, 5);
    // Frames 10, 12, 14 ... become 100, 105, 110 ...
    for (int k = 0; k <= 5; ++k) {
        const int frame = 10 + 2 * k;
        const std::string name = d.getImageName(kPathRelative, TanimTime(frame), "c", "", nullptr, "s").str();
        EXPECT_EQ(name, "f." + std::to_string(100 + 5 * k)) << frame;
    }
    d.setFrameRange(10, 20, 0);  // a zero step counts as one
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(12), "c", "", nullptr, "s").str(), "f.110");
}

TEST_F(RenderGlobalsNaming, LayerNames) {
    TcommonRenderGlobalsData d = settings("%l/%s", "name.ext");
    TrenderLayerState master{"defaultRenderLayer", true, {}};
    TrenderLayerState fg{"ns:fg", false, {}};
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(1), "c", "", nullptr, "s").str(), "/s.iff");
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(1), "c", "", &master, "s").str(), "masterLayer/s.iff");
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(1), "c", "", &fg, "s").str(), "ns_fg/s.iff");
    d.setPassName("specular");
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(1), "c", "", &fg, "s").str(), "ns_fg_specular/s.iff");
    d.setVersionLabel("v3");
    d.setImageName("%s_<Version>");
    EXPECT_EQ(d.getImageName(kPathRelative, TanimTime(1), "c", "", &fg, "s").str(), "s_v3.iff");
}

TEST_F(RenderGlobalsNaming, PathTypesPlaceTheImage) {
    struct Tcase {
        const char* prefix;
        const char* folder;
        const char* relative;
        const char* images;
        const char* temporary;
    };
    const Tcase cases[] = {
        {"%s", "images", "shot.iff", "images/shot.iff", "images/tmp/shot.iff"},
        {"%s", "proj/images/", "shot.iff", "proj/images/shot.iff", "proj/images/tmp/shot.iff"},
        {"out/%s", "images", "out/shot.iff", "images/out/shot.iff", "images/tmp/out/shot.iff"},
        {"%s", "", "shot.iff", "shot.iff", "tmp/shot.iff"},
        {"/abs/%s", "images", "/abs/shot.iff", "/abs/shot.iff", "/abs/shot_tmp.iff"},
        {"/abs/%s.v2", "images", "/abs/shot.v2.iff", "/abs/shot.v2.iff", "/abs/shot.v2_tmp.iff"},  // the last dot
        {"C:/r.d/%s", "images", "C:/r.d/shot.iff", "C:/r.d/shot.iff", "C:/r.d/shot_tmp.iff"},
        {"\\\\srv\\%s", "images", "\\\\srv\\shot.iff", "\\\\srv\\shot.iff", "\\\\srv\\shot_tmp.iff"},
    };
    for (const Tcase& c : cases) {
        TcommonRenderGlobalsData d = settings(c.prefix, "name.ext");
        d.setImagesFolder(c.folder);
        const TpathType types[] = {kPathRelative, kPathImages, kPathTemporary};
        const char* expected[] = {c.relative, c.images, c.temporary};
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(d.getImageName(types[i], TanimTime(1), "c", "", nullptr, "shot").str(), expected[i])
                << c.prefix << " path type " << i;
    }
    // Without an extension the suffix goes at the end, whatever dots the folders have.
    TcommonRenderGlobalsData d = settings("/r.d/%s", "name");
    EXPECT_EQ(d.getImageName(kPathTemporary, TanimTime(1), "c", "", nullptr, "shot").str(), "/r.d/shot_tmp");
}

TEST_F(RenderGlobalsNaming, AllImageNamesNestPassesCamerasFields) {
    TcommonRenderGlobalsData d = settings("%s", "name.ext");
    TstringArray names{"stale"};
    const TstringArray beautyOnly{"beauty"};
    d.getAllImageNames(kPathRelative, TanimTime(1), "", nullptr, "shot", &beautyOnly, nullptr, names);
    EXPECT_TRUE(names.isEmpty()) << "no renderable camera, no image";
    d.setRenderableCameras({"persp"});
    d.getAllImageNames(kPathRelative, TanimTime(1), "", nullptr, "shot", &beautyOnly, nullptr, names);
    EXPECT_EQ(strings(names), std::vector<std::string>{"shot.iff"}) << "a single pass is not named";
    d.getAllImageNames(kPathImages, TanimTime(1), "", nullptr, "shot", nullptr, nullptr, names);
    EXPECT_EQ(strings(names), std::vector<std::string>{"images/shot.iff"});
    TrenderLayerState beauty{"fg", false, {"beauty", "depth"}};
    d.initializeImageNameSettings(&beauty, true);  // several passes: now even one is named
    d.getAllImageNames(kPathRelative, TanimTime(1), "", &beauty, "shot", &beautyOnly, nullptr, names);
    EXPECT_EQ(strings(names), std::vector<std::string>{"fg_beauty/shot.iff"});

    d.setRenderableCameras({"persp", "top"});
    TrenderLayerState layer{"fg", false, {"diffuse", "specular"}};
    d.initializeImageNameSettings(&layer, true);
    const TstringArray passes{"diffuse", "specular"};
    const TstringArray fields{"odd", "even"};
    d.getAllImageNames(kPathRelative, TanimTime(1), "", &layer, "shot", &passes, &fields, names);
    const std::vector<std::string> expected{
        "fg_diffuse/persp_odd/shot.iff",  "fg_diffuse/persp_even/shot.iff", "fg_diffuse/top_odd/shot.iff",
        "fg_diffuse/top_even/shot.iff",   "fg_specular/persp_odd/shot.iff", "fg_specular/persp_even/shot.iff",
        "fg_specular/top_odd/shot.iff",   "fg_specular/top_even/shot.iff",
    };
    EXPECT_EQ(strings(names), expected);

    // Each name is the one getImageName gives for that pass, camera and field.
    TcommonRenderGlobalsData one = d;
    one.setPassName("specular");
    one.setFieldName("even");
    EXPECT_EQ(one.getImageName(kPathRelative, TanimTime(1), "top", "", &layer, "shot").str(), expected.back());
}

TEST_F(RenderGlobalsNaming, AllImageNamesNeverCollide) {
    // Flags that say one camera, no passes, no fields; the enumeration has
    // more of each and must still give every image its own file.
    for (const char* scheme : {"1", "2", "3", "4", "5", "6", "7"}) {
        TcommonRenderGlobalsData d = settings("img", scheme);
        d.setAnimated(true);
        d.setRenderableCameras({"a", "b", "c"});
        const TstringArray passes{"p", "q"};
        const TstringArray fields{"odd", "even"};
        std::set<std::string> all;
        unsigned count = 0;
        for (int frame = 1; frame <= 3; ++frame) {
            TstringArray names;
            d.getAllImageNames(kPathImages, TanimTime(frame), "", nullptr, "shot", &passes, &fields, names);
            EXPECT_EQ(names.length(), 12u);
            for (const Tstring& n : names) all.insert(n.str());
            count += names.length();
        }
        // Frames share a file only where the scheme has no frame number.
        const bool framed = d.needsFrameNumber();
        EXPECT_EQ(all.size(), framed ? count : count / 3) << "scheme " << scheme;
    }
}

TEST(ImageFormats, TableIsConsistent) {
    std::set<int> numbers;
    std::set<std::string> keys, labels;
    for (const TimageFormatInfo& f : TimageFormats::sAll()) {
        EXPECT_TRUE(numbers.insert(f.number).second) << f.key;
        EXPECT_TRUE(keys.insert(f.key).second) << f.key;
        EXPECT_TRUE(labels.insert(f.label).second) << f.label;
        // Every name leads back to its own format.
        EXPECT_EQ(TimageFormats::sParse(f.key), &f);
        EXPECT_EQ(TimageFormats::sParse(f.label), &f);
        EXPECT_EQ(TimageFormats::sParse(std::to_string(f.number)), &f);
        EXPECT_EQ(TimageFormats::sFind(f.number), &f);
        EXPECT_EQ(TimageFormats::sIsMultiframe(f.number), f.multiFrame) << f.key;
        const TimageFormatInfo* byExtension = TimageFormats::sParse(f.extension);
        if (f.extension[0]) {
            ASSERT_NE(byExtension, nullptr) << f.key;
            EXPECT_EQ(std::string(byExtension->extension), f.extension);
        }
    }
    EXPECT_EQ(TimageFormats::sParse("TOVI iff"), TimageFormats::sFind(TimageFormats::kIFF));
    EXPECT_EQ(TimageFormats::sParse(""), nullptr);
    EXPECT_EQ(TimageFormats::sParse("7x"), nullptr);
    EXPECT_FALSE(TimageFormats::sIsMultiframe(-1)) << "no number off the table";
}

TEST(ImageFormats, LibraryNamesAndExtensions) {
    // The file extension is the format's in lower case; a format the library
    // does not name takes the plug-in's key.
    TcommonRenderGlobalsData layered;
    ASSERT_TRUE(layered.setImageFormat("kPHOTOSHOPLAYERED"));
    EXPECT_EQ(layered.getFormatExtension().str(), "psdLayered");
    EXPECT_EQ(layered.fileFormatExtension().str(), "psdlayered");
    EXPECT_EQ(TimageFormats::sImfName(99).str(), "UNKNOWN");

    TcommonRenderGlobalsData plugin;
    plugin.setImageFormat("kIMF");
    EXPECT_EQ(plugin.getImfFormat().str(), "UNKNOWN");
    plugin.setImfPluginKey("exr");
    EXPECT_EQ(plugin.getImfFormat().str(), "exr");
    EXPECT_EQ(plugin.getFormatExtension().str(), "exr");
}
