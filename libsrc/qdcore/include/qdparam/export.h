// Symbol visibility of the parameter library.
#pragma once

#if defined(QDPARAM_BUILD)
#define QDPARAM_API __attribute__((visibility("default")))
#else
#define QDPARAM_API
#endif
