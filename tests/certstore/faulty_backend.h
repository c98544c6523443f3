// Calls into the copy of faulty_backend.cpp that libzorvik-cryptoki has loaded as its backing
// module (FAULTY_BACKEND is its path); -1 when it is not loaded.
#pragma once
#include <dlfcn.h>

template <typename... Args>
int faultyBackend(const char* call, Args... args)
{
    void* handle = dlopen(FAULTY_BACKEND, RTLD_NOW | RTLD_NOLOAD);
    auto fn = handle ? reinterpret_cast<int (*)(Args...)>(dlsym(handle, call)) : nullptr;
    if (handle)
        dlclose(handle);
    return fn ? fn(args...) : -1;
}
