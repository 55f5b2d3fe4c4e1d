// Compiles the header for native callers as C.
#include "jni/oxjni.h"
