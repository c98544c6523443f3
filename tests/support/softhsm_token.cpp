#include "softhsm_token.h"

#include "test_credential.h"
#include "test_support.h"

#include <QFile>

SoftHsmToken::SoftHsmToken(const QString& label, const QString& pin) : label_(label), pin_(pin)
{
    QByteArray out = "no temporary directory";
    valid_ = dir_.isValid() && runProgram("bash",
                                          {setupScript(), "init", dir_.path(), "--label", label_, "--pin", pin_,
                                           "--so-pin", kDefaultSoPin},
                                          &out) == 0;
    if (!valid_)
        error_ = "softhsm-setup init failed: " + QString::fromLocal8Bit(out);
}

QProcessEnvironment SoftHsmToken::environment(bool noCards, QProcessEnvironment base) const
{
    base.insert("SOFTHSM2_CONF", dir_.path() + "/softhsm2.conf");
    base.insert("ZORVIK_CRYPTOKI_BACKEND", backendPath());
    base.insert("ZORVIK_CRYPTOKI_STATE_DIR", dir_.path() + "/state");
    base.remove("ZORVIK_CRYPTOKI_NO_CARDS");
    if (noCards)
        base.insert("ZORVIK_CRYPTOKI_NO_CARDS", "1");
    return base;
}

void SoftHsmToken::apply(bool noCards) const
{
    const QProcessEnvironment env = environment(noCards);
    for (const char* name :
         {"SOFTHSM2_CONF", "ZORVIK_CRYPTOKI_BACKEND", "ZORVIK_CRYPTOKI_STATE_DIR", "ZORVIK_CRYPTOKI_NO_CARDS"})
        env.contains(name) ? qputenv(name, env.value(name).toLocal8Bit()) : qunsetenv(name);
}

QString SoftHsmToken::load(const TestCredential& credential, const QString& label) const
{
    const QString cert = dir_.path() + "/load-cert.pem", key = dir_.path() + "/load-key.pem";
    QStringList args{setupScript(), "load",  dir_.path(), "--cert",        cert,  "--key",
                     key,           "--pin", pin_,        "--token-label", label_};
    if (!label.isEmpty())
        args << "--label" << label;
    QByteArray out;
    const bool loaded = credential.writePem(cert, key) && runProgram("bash", args, &out, environment()) == 0;
    QFile::remove(cert);
    QFile::remove(key);
    return loaded ? QString::fromLocal8Bit(out).trimmed() : QString();
}

int SoftHsmToken::pkcs11Tool(const QStringList& args, QString* output, bool throughModule) const
{
    QByteArray out;
    const int rc =
        runProgram("pkcs11-tool", QStringList{"--module", throughModule ? modulePath() : backendPath()} + args, &out,
                   environment());
    if (output)
        *output = QString::fromLocal8Bit(out);
    return rc;
}
