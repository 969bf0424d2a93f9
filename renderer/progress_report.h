#pragma once
// Progress of a long render for the person or the log watching it. On a
// terminal: one bar with elapsed time and ETA, redrawn in place only when
// its text changes. In a log: a plain line at most every few seconds, and
// one at the end, each with percent, elapsed time and ETA.
#include <cstdio>
#include <functional>
#include <string>

class TprogressReport {
public:
    enum Tmode { kBar, kLog };
    // `clock` gives seconds from any fixed start; tests drive it by hand.
    TprogressReport(Tmode mode, std::FILE* out, std::string label, double logInterval = 5.0,
                    std::function<double()> clock = {});

    // `done` of `total` units of work are finished.
    void update(unsigned done, unsigned total);

    // "0:07", "12:40", "1:02:03".
    static std::string sDuration(double seconds);
    // The text of one report, without bar, line end or carriage return.
    static std::string sStatus(const std::string& label, unsigned done, unsigned total, double elapsed);

private:
    Tmode fMode;
    std::FILE* fOut;
    std::string fLabel;
    double fLogInterval;
    std::function<double()> fClock;
    double fStart;
    double fLastLine = -1;
    std::string fLastDrawn;
};
