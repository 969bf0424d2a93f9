#pragma once
// A scene file through the program, as a user renders one: the text written
// into a folder, `shadenet render` run on it, the image read back. Inline:
// the program's path is known to the test programs only.
#include <fstream>
#include <string>
#include <vector>

#include "support/program_run.h"
#include "support/temp_dir.h"
#include "support/test_image.h"

struct TsceneRender {
    TprogramRun run;
    TtestImage image;  // width 0 when the program failed or wrote nothing readable
};

// Writes `scene` as `name`.json in `dir` and renders it to `name`.`extension`
// with the given arguments after the output's.
inline TsceneRender renderSceneFile(const TtestTempDir& dir, const std::string& name, const std::string& scene,
                                    const std::vector<std::string>& arguments = {}, const std::string& extension = "exr") {
    const std::string file = dir.file(name + ".json"), image = dir.file(name + "." + extension);
    std::ofstream(file) << scene;
    std::vector<std::string> words{"render", file, "-o", image};
    words.insert(words.end(), arguments.begin(), arguments.end());
    TsceneRender out;
    out.run = runProgram(SHADENET_CLI, words);
    if (out.run.status == 0) out.image = readTestImage(image);
    return out;
}
