// Declares which lock guards which data, for clang's -Wthread-safety. Empty for other compilers.
#ifndef OXLI_JNI_BASE_THREAD_ANNOTATIONS_H
#define OXLI_JNI_BASE_THREAD_ANNOTATIONS_H

#if defined(__clang__)
#define OXLI_ANNOTATION(x) __attribute__((x))
#else
#define OXLI_ANNOTATION(x)
#endif

#define SCOPED_CAPABILITY OXLI_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) OXLI_ANNOTATION(guarded_by(x))
#define REQUIRES(...) OXLI_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) OXLI_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) OXLI_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS OXLI_ANNOTATION(no_thread_safety_analysis)

#endif  // OXLI_JNI_BASE_THREAD_ANNOTATIONS_H
