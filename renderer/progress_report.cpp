#include "renderer/progress_report.h"

#include <chrono>
#include <cmath>

namespace {
double steadySeconds() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}
}  // namespace

TprogressReport::TprogressReport(Tmode mode, std::FILE* out, std::string label, double logInterval,
                                 std::function<double()> clock)
    : fMode(mode),
      fOut(out),
      fLabel(std::move(label)),
      fLogInterval(logInterval),
      fClock(clock ? std::move(clock) : std::function<double()>(steadySeconds)),
      fStart(fClock()) {}

std::string TprogressReport::sDuration(double seconds) {
    long s = std::lround(std::max(0.0, seconds));
    char text[32];
    if (s >= 3600)
        std::snprintf(text, sizeof text, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
    else
        std::snprintf(text, sizeof text, "%ld:%02ld", s / 60, s % 60);
    return text;
}

std::string TprogressReport::sStatus(const std::string& label, unsigned done, unsigned total, double elapsed) {
    const double fraction = total ? double(done) / double(total) : 1.0;
    std::string text = label + " " + std::to_string(int(std::floor(100.0 * fraction))) + "%, " + sDuration(elapsed) + " elapsed";
    if (done >= total) return text;
    // The rate so far holds for the rest; nothing is known before the first unit.
    text += ", ETA " + (done ? sDuration(elapsed * double(total - done) / double(done)) : std::string("--:--"));
    return text;
}

void TprogressReport::update(unsigned done, unsigned total) {
    const double now = fClock();
    const double elapsed = now - fStart;
    const bool finished = done >= total;
    const std::string status = sStatus(fLabel, done, total, elapsed);
    if (fMode == kLog) {
        if (!finished && fLastLine >= 0 && now - fLastLine < fLogInterval) return;
        if (!finished && fLastLine < 0 && elapsed < fLogInterval) return;
        fLastLine = now;
        std::fprintf(fOut, "%s\n", status.c_str());
        std::fflush(fOut);
        return;
    }
    constexpr int kWidth = 30;
    const int filled = total ? int(kWidth * double(done) / double(total)) : kWidth;
    std::string line(1, '[');
    line.append(size_t(filled), '#').append(size_t(kWidth - filled), ' ').append("] ").append(status);
    if (line == fLastDrawn) return;
    // Clears what a longer earlier line left.
    const size_t pad = fLastDrawn.size() > line.size() ? fLastDrawn.size() - line.size() : 0;
    fLastDrawn = line;
    std::fprintf(fOut, "\r%s%s%s", line.c_str(), std::string(pad, ' ').c_str(), finished ? "\n" : "");
    std::fflush(fOut);
}
