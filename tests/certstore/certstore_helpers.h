// Helpers shared by the certificate store's tests (and the faults on the bench).
#pragma once
#include <QPair>
#include <QProcess>

#include "test_support.h"

#include <dlfcn.h>

// Runs a program to its end: its exit code (-1 when it did not run or crashed) and its output.
inline QPair<int, QString> runTool(const QString& program, const QStringList& args,
                                      const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
{
    QByteArray output;
    const int code = runProgram(program, args, &output, env);
    return {code, QString::fromLocal8Bit(output)};
}

#ifdef FAULTY_BACKEND
// Calls into the copy of faulty_backend.cpp that libzorvik-cryptoki has loaded as its backing
// module (FAULTY_BACKEND is its path); -1 when it is not loaded.
template <typename... Args>
int faultyBackend(const char* call, Args... args)
{
    void* handle = dlopen(FAULTY_BACKEND, RTLD_NOW | RTLD_NOLOAD);
    auto fn = handle ? reinterpret_cast<int (*)(Args...)>(dlsym(handle, call)) : nullptr;
    if (handle)
        dlclose(handle);
    return fn ? fn(args...) : -1;
}
#endif
