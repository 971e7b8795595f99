#include "frames/KernelPath.h"

#include "frames/VectorKernels.h"

#include <cstdlib>
#include <cstring>

bool vectorKernelsBuilt() {
#if HDSML_VECTOR_KERNELS
  return true;
#else
  return false;
#endif
}

KernelPath defaultKernelPath() {
  static const KernelPath path = [] {
    const char* plain = std::getenv("HDSML_PLAIN_KERNELS");
    const bool forcePlain = plain != nullptr && plain[0] != '\0' && std::strcmp(plain, "0") != 0;
    return forcePlain || !vectorKernelsBuilt() ? KernelPath::kPlain : KernelPath::kVector;
  }();
  return path;
}
