// Clang's thread-safety annotations; they cost nothing and vanish under other compilers.
#pragma once

#if defined(__clang__)
#define KELP_ATTRIBUTE(x) __attribute__((x))
#else
#define KELP_ATTRIBUTE(x)
#endif

#define KELP_CAPABILITY(name) KELP_ATTRIBUTE(capability(name))
#define KELP_SCOPED_CAPABILITY KELP_ATTRIBUTE(scoped_lockable)
#define KELP_GUARDED_BY(mutex) KELP_ATTRIBUTE(guarded_by(mutex))
#define KELP_REQUIRES(...) KELP_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KELP_ACQUIRE(...) KELP_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KELP_RELEASE(...) KELP_ATTRIBUTE(release_capability(__VA_ARGS__))
