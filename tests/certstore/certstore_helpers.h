// Helpers shared by the certificate store's tests (and the faults on the bench).
#pragma once
#include <QPair>
#include <QProcess>

#include <dlfcn.h>

// Runs a program to its end: its exit code (-1 when it did not run or crashed) and its output.
inline QPair<int, QString> runTool(const QString& program, const QStringList& args,
                                      const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment())
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    if (!p.waitForStarted(10000) || !p.waitForFinished(120000) || p.exitStatus() != QProcess::NormalExit)
        return {-1, program + " did not run: " + p.errorString() + "\n" + QString::fromLocal8Bit(p.readAll())};
    return {p.exitCode(), QString::fromLocal8Bit(p.readAll())};
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
