#pragma once
// Helpers of the integrations tests: running the real tools, files, screenshots.
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>
#include <QWidget>

inline QString run(const QString& program, const QStringList& args, int* code = nullptr)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    p.waitForFinished(60000);
    if (code)
        *code = p.exitCode();
    return QString::fromLocal8Bit(p.readAll());
}

inline void screenshot(QWidget* widget, const QString& name)
{
    const QString dir = qEnvironmentVariable("ZORVIK_SCREENSHOT_DIR");
    if (dir.isEmpty())
        return;
    QDir().mkpath(dir);
    widget->show();
    if (QTest::qWaitForWindowExposed(widget))
        widget->grab().save(dir + "/" + name + ".png");
}
