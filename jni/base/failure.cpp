#include "jni/base/failure.h"

#include <cstdio>

namespace oxli::jni {

void reportFailure(const char* step) noexcept {
  std::fprintf(stderr, "\nJNI Exception at %s\n\n", step);
}

}  // namespace oxli::jni
