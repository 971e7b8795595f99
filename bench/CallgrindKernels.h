// The counting mode of hdsml_bench (--callgrind): runs each of the library's
// kernels, and the peers they are measured against, over the benchmark frames
// once, with OpenCV's threads as a host process has them, between marks:
//   - callgrind client requests that zero the counts before a kernel and dump
//     them, named after it, afterwards (scripts/bench --callgrind); outside
//     valgrind they do nothing;
//   - with `marks`, a write of nothing to file descriptor -1 (which fails
//     harmlessly) whose third argument numbers the mark: 2i before kernel i,
//     2i + 1 after it. scripts/lib/qemu-thread-insns.c notes the instructions
//     of all threads at each (scripts/cross-arm64 --instructions).
// Each kernel is announced on standard error as "hdsml_bench: ran NAME frames=N".
// `only`, when not empty, keeps the kernels whose names start with it.
#pragma once

#include <string>

namespace hdsml_bench {

int runCallgrindKernels(const std::string& only, bool marks);

}  // namespace hdsml_bench
