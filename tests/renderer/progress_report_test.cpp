// The progress report on a clock driven by hand: what a log and a terminal
// receive, and when.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "renderer/progress_report.h"

namespace {
// Everything written to a memory stream so far.
struct Tcapture {
    char* buffer = nullptr;
    size_t size = 0;
    std::FILE* file = open_memstream(&buffer, &size);
    ~Tcapture() {
        std::fclose(file);
        std::free(buffer);
    }
    std::string text() {
        std::fflush(file);
        return std::string(buffer, size);
    }
};
}  // namespace

TEST(ProgressReport, ALogGetsALineEveryIntervalAndOneAtTheEnd) {
    Tcapture out;
    double now = 100;
    TprogressReport report(TprogressReport::kLog, out.file, "frame 3", 5.0, [&] { return now; });
    // 10 units at 1.5 s each. The first line waits for 5 s (4 done at 6 s),
    // the next for 5 s more (8 done at 12 s), the last comes at the end.
    for (unsigned done = 1; done <= 10; ++done) {
        now = 100 + 1.5 * done;
        report.update(done, 10);
    }
    EXPECT_EQ(out.text(),
              "frame 3 40%, 0:06 elapsed, ETA 0:09\n"
              "frame 3 80%, 0:12 elapsed, ETA 0:03\n"
              "frame 3 100%, 0:15 elapsed\n");
}

TEST(ProgressReport, ATerminalBarIsRedrawnOnlyWhenItsTextChanges) {
    Tcapture out;
    double now = 0;
    TprogressReport report(TprogressReport::kBar, out.file, "render", 5.0, [&] { return now; });
    report.update(0, 3);
    const std::string first = out.text();
    EXPECT_EQ(first, "\r[                              ] render 0%, 0:00 elapsed, ETA --:--");
    now = 0.2;
    report.update(0, 3);  // the same text: nothing drawn
    EXPECT_EQ(out.text(), first);
    now = 2;
    report.update(1, 3);
    now = 6;
    report.update(3, 3);
    // The last line is padded over the longer one before it.
    EXPECT_EQ(out.text(), first +
                              "\r[##########                    ] render 33%, 0:02 elapsed, ETA 0:04"
                              "\r[##############################] render 100%, 0:06 elapsed         \n");
}

TEST(ProgressReport, DurationsReadAsClockTimes) {
    const std::pair<double, const char*> cases[] = {{0, "0:00"}, {59.4, "0:59"}, {59.6, "1:00"}, {754, "12:34"},
                                                    {3723, "1:02:03"}, {-3, "0:00"}};
    for (const auto& [seconds, text] : cases) EXPECT_EQ(TprogressReport::sDuration(seconds), text) << seconds;
}
