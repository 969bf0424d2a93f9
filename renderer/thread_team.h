#pragma once
// forEachOnThreads: the renderer's parallel loop. Indices are handed out in
// order through one counter to a team of plain threads, the caller's among
// them, which are started and joined inside the call. Everything written
// before the call is seen by every body, and everything the bodies write is
// seen after it; the ordering is made of thread start, join and one atomic
// counter, all of which the thread sanitizer sees (a task library's own
// scheduling, compiled without it, would hide that ordering from it).
#include <cstddef>
#include <functional>

// Calls body(index, member) once for each index in [0, count), on at most
// `threads` threads; `member` in [0, threads) names the calling team member,
// so per-thread state can be indexed by it. Bodies must not throw.
void forEachOnThreads(size_t count, int threads, const std::function<void(size_t index, int member)>& body);

// The number of threads to use when the caller asks for none in particular.
int defaultThreadCount();
