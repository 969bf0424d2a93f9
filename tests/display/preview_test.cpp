// The preview through the command a user runs: the showcase drawn by OpenGL
// against the same scene ray traced, object by object, through the masks the
// preview writes of its own objects.
#include <gtest/gtest.h>

#include <cmath>
#include <map>

#include "support/program_run.h"
#include "support/temp_dir.h"
#include "support/test_image.h"

namespace {
struct Tmeans {
    double sum[3] = {0, 0, 0};
    long count = 0;
};
}  // namespace

TEST(PreviewCommand, ShowcaseMatchesTheRenderPerObject) {
    TtestTempDir dir;
    const std::string scene = std::string(SHADENET_SOURCE_DIR) + "/examples/showcase.json";
    const std::string preview = dir.file("preview.png"), ids = dir.file("ids.png"), render = dir.file("render.png");
    TprogramRun p = runProgram(SHADENET_CLI, {"preview", scene, "-o", preview, "--object-ids", ids});
    ASSERT_EQ(p.status, 0) << p.err;
    TprogramRun r = runProgram(SHADENET_CLI, {"render", scene, "-o", render, "-q", "--spp", "1", "--no-post"});
    ASSERT_EQ(r.status, 0) << r.err;
    TtestImage a = readTestImage(preview), b = readTestImage(render), id = readTestImage(ids);
    ASSERT_EQ(a.width, 640);
    ASSERT_EQ(a.height, 400);
    ASSERT_EQ(b.width, a.width);
    ASSERT_EQ(id.width, a.width);

    // Pixels well inside an object only: the tessellated spheres' rims and
    // the edges' antialiasing differ by design.
    std::map<int, Tmeans> preview_means, render_means;
    auto idAt = [&](int x, int y) { return int(std::lround(id.at(x, y, 0) * 255)); };
    for (int y = 2; y < a.height - 2; ++y)
        for (int x = 2; x < a.width - 2; ++x) {
            int k = idAt(x, y);
            if (k == 0 || idAt(x - 2, y) != k || idAt(x + 2, y) != k || idAt(x, y - 2) != k || idAt(x, y + 2) != k) continue;
            for (int c = 0; c < 3; ++c) {
                preview_means[k].sum[c] += a.at(x, y, c);
                render_means[k].sum[c] += b.at(x, y, c);
            }
            ++preview_means[k].count, ++render_means[k].count;
        }
    // Eight objects in the showcase; the chrome ball (object 5) is mostly
    // reflection, which the viewport does not draw.
    EXPECT_EQ(preview_means.size(), 8u);
    for (auto& [k, m] : preview_means) {
        if (k == 5) continue;
        double pa[3], pb[3], diff = 0, norm = 0;
        for (int c = 0; c < 3; ++c) {
            pa[c] = m.sum[c] / double(m.count);
            pb[c] = render_means[k].sum[c] / double(m.count);
            diff += (pa[c] - pb[c]) * (pa[c] - pb[c]);
            norm += pb[c] * pb[c];
        }
        EXPECT_LT(std::sqrt(diff / norm), 0.10) << "object " << k << " over " << m.count << " pixels: preview (" << pa[0] << ", "
                                                << pa[1] << ", " << pa[2] << ") render (" << pb[0] << ", " << pb[1] << ", "
                                                << pb[2] << ")";
    }
}
