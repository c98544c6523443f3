#include "softhsm_token.h"

#include <QDir>
#include <QFile>
#include <QProcess>

#include "test_credential.h"

namespace {

// Runs a program to its end; exit code, or -1 when it did not start or end in time.
int run(const QString& program, const QStringList& args, const QProcessEnvironment& env, QString* output,
        int timeoutMs = 120000)
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(program, args);
    if (!p.waitForStarted(10000)) {
        if (output)
            *output = program + ": " + p.errorString();
        return -1;
    }
    const bool ended = p.waitForFinished(timeoutMs);
    if (!ended)
        p.kill();
    if (output)
        *output = QString::fromLocal8Bit(p.readAll());
    return ended && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

} // namespace

SoftHsmToken::SoftHsmToken(const QString& label, const QString& pin) : label_(label), pin_(pin)
{
    if (!dir_.isValid()) {
        error_ = "no temporary directory";
        return;
    }
    QString out;
    const int rc =
        run("bash", {setupScript(), "init", dir_.path(), "--label", label_, "--pin", pin_, "--so-pin", kDefaultSoPin},
            QProcessEnvironment::systemEnvironment(), &out);
    valid_ = rc == 0;
    if (!valid_)
        error_ = "softhsm-setup init failed: " + out;
}

QString SoftHsmToken::backendPath()
{
    return "/usr/lib/softhsm/libsofthsm2.so";
}

QString SoftHsmToken::modulePath()
{
    return QString(ZORVIK_BINARY_DIR) + "/lib/libzorvik-cryptoki.so";
}

QString SoftHsmToken::setupScript()
{
    return QString(ZORVIK_SOURCE_DIR) + "/testbed/softhsm-setup";
}

QProcessEnvironment SoftHsmToken::environment(bool noCards, QProcessEnvironment base) const
{
    base.insert("SOFTHSM2_CONF", dir_.path() + "/softhsm2.conf");
    base.insert("ZORVIK_CRYPTOKI_BACKEND", backendPath());
    base.insert("ZORVIK_CRYPTOKI_STATE_DIR", dir_.path() + "/state");
    if (noCards)
        base.insert("ZORVIK_CRYPTOKI_NO_CARDS", "1");
    else
        base.remove("ZORVIK_CRYPTOKI_NO_CARDS");
    return base;
}

void SoftHsmToken::apply(bool noCards) const
{
    const QProcessEnvironment env = environment(noCards);
    for (const char* name : {"SOFTHSM2_CONF", "ZORVIK_CRYPTOKI_BACKEND", "ZORVIK_CRYPTOKI_STATE_DIR"})
        qputenv(name, env.value(name).toLocal8Bit());
    if (noCards)
        qputenv("ZORVIK_CRYPTOKI_NO_CARDS", "1");
    else
        qunsetenv("ZORVIK_CRYPTOKI_NO_CARDS");
}

QString SoftHsmToken::load(const TestCredential& credential, const QString& label) const
{
    const QString cert = dir_.path() + "/load-cert.pem";
    const QString key = dir_.path() + "/load-key.pem";
    if (!credential.writePem(cert, key))
        return {};
    QStringList args{setupScript(), "load",  dir_.path(), "--cert",        cert,  "--key",
                     key,           "--pin", pin_,        "--token-label", label_};
    if (!label.isEmpty())
        args << "--label" << label;
    QString out;
    const int rc = run("bash", args, environment(), &out);
    QFile::remove(cert);
    QFile::remove(key);
    return rc == 0 ? out.trimmed() : QString();
}

int SoftHsmToken::pkcs11Tool(const QStringList& args, QString* output, bool throughModule) const
{
    return run("pkcs11-tool", QStringList{"--module", throughModule ? modulePath() : backendPath()} + args,
               environment(), output);
}
