// The name subcommand, run as a user runs it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/program_run.h"

namespace {

TprogramRun runCli(const std::vector<std::string>& args) { return runProgram(SHADENET_CLI, args); }

}  // namespace

TEST(NameCommand, ExpandsAndRepairsPatterns) {
    struct Tcase {
        std::vector<std::string> args;
        const char* out;
    };
    const std::vector<std::string> shot{"--scene", "shot", "--camera", "persp", "--frame", "7", "--ext", "iff",
                                        "--animated"};
    auto plus = [&](std::vector<std::string> head) {
        head.insert(head.end(), shot.begin(), shot.end());
        return head;
    };
    const Tcase cases[] = {
        {plus({"name", "%s.%4n.%e"}), "shot.0007.iff\n"},
        {plus({"name", "%s.%4n.%e", "--keep-number"}), "shot.%4n.iff\n"},
        {plus({"name", "%/l%s%_l.%e", "--layer", "fg", "--pass", "specular"}), "fg_specular/shot_fg_specular.iff\n"},
        {plus({"name", "<Camera>/%s", "--field", "odd"}), "persp_odd/shot\n"},
        {{"name", "%s.%4n", "--scene", "shot", "--frame", "-7", "--animated"}, "shot.-007\n"},
        {{"name", "%s.%4n", "--scene", "a:b|c", "--frame", "7"}, "a_b_c.\n"},  // not animated: no number
        {{"name", "--fix", "%s%.e", "--need-frame"}, "%s%_4n%.e\n"},
        {{"name", "--fix", "render", "--need-camera", "--need-layer"}, "%/l%/crender\n"},
        {{"name", "--fix", "%s"}, "%s\n"},
    };
    for (const Tcase& c : cases) {
        const std::string what = c.args[1] + " " + c.args[2];
        const TprogramRun run = runCli(c.args);
        EXPECT_EQ(run.status, 0) << what << ": " << run.err;
        EXPECT_EQ(run.out, c.out) << what;
        EXPECT_EQ(run.err, "") << what;
    }
    // The warning about the repair is shown on request, on stderr only.
    const TprogramRun verbose = runCli({"name", "--fix", "render", "--need-camera", "--verbose"});
    EXPECT_EQ(verbose.out, "%/crender\n");
    EXPECT_NE(verbose.err.find("%/crender"), std::string::npos) << verbose.err;
}

TEST(NameCommand, BadRequestsExitWithStatusTwo) {
    struct Tcase {
        std::vector<std::string> args;
        const char* mentions;  // in the message on stderr
    };
    const Tcase cases[] = {
        {{"name"}, "pattern"},
        {{"name", "%s", "--frame", "seven"}, "--frame"},
        {{"name", "%s", "--bogus"}, "--bogus"},
        {{"name", "--fix", "%s", "--scene", "shot"}, "--scene"},
        {{"name", "--fix", "%s", "--animated"}, "--animated"},
        {{"name", "%s", "--need-frame"}, "--need-frame"},
        {{"name", ""}, "empty"},
        {{"name", std::string(5000, 'x')}, "longer"},
    };
    for (const Tcase& c : cases) {
        const TprogramRun run = runCli(c.args);
        const std::string what = c.args.size() > 1 ? c.args.back().substr(0, 20) : "no pattern";
        EXPECT_EQ(run.status, 2) << what;
        EXPECT_EQ(run.out, "") << what;
        EXPECT_NE(run.err.find(c.mentions), std::string::npos) << what << ": " << run.err;
    }
}
