// Function multiversioning: QUIVELAR_CLONES("avx2", "default") before a
// function makes one copy per instruction set, and the loader picks one
// through an ifunc resolver. ThreadSanitizer's runtime is not up yet when the
// resolvers run, and the process dies before main; its build keeps only the
// default copy, which computes the same values.
#pragma once

#if defined(__SANITIZE_THREAD__)
#define QUIVELAR_SEM_CLONES 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QUIVELAR_SEM_CLONES 1
#endif
#endif

#ifdef QUIVELAR_SEM_CLONES
#define QUIVELAR_CLONES(...)
#else
#define QUIVELAR_CLONES(...) __attribute__((target_clones(__VA_ARGS__)))
#endif
