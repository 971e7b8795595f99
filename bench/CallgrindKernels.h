// The --callgrind mode of hdsml_bench: runs each of the library's kernels over
// the benchmark frames once, between callgrind client requests that zero the
// counts before a kernel and dump them, named after it, afterwards. Outside
// valgrind the requests do nothing and the mode only checks that it runs.
#pragma once

namespace hdsml_bench {

int runCallgrindKernels();

}  // namespace hdsml_bench
