#pragma once

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

class TestCredential;

// A private SoftHSM2 token made by testbed/softhsm-setup: the store that
// libzorvik-cryptoki forwards to on the bench. The directory goes with the object.
class SoftHsmToken
{
public:
    static constexpr const char* kDefaultPin = "123456";
    static constexpr const char* kDefaultSoPin = "12345678";

    explicit SoftHsmToken(const QString& label = "Vantrel", const QString& pin = kDefaultPin);
    bool isValid() const { return valid_; }
    QString errorText() const { return error_; }
    QString directory() const { return dir_.path(); }
    QString label() const { return label_; }
    QString pin() const { return pin_; }
    QString soPin() const { return kDefaultSoPin; }

    static QString backendPath() { return "/usr/lib/softhsm/libsofthsm2.so"; }
    static QString modulePath() { return ZORVIK_BINARY_DIR "/lib/libzorvik-cryptoki.so"; }
    static QString setupScript() { return ZORVIK_SOURCE_DIR "/testbed/softhsm-setup"; }

    // The variables that point SoftHSM2 and the module at this token: SOFTHSM2_CONF,
    // ZORVIK_CRYPTOKI_BACKEND, ZORVIK_CRYPTOKI_STATE_DIR, and ZORVIK_CRYPTOKI_NO_CARDS=1 with `noCards`.
    QProcessEnvironment environment(bool noCards = true,
                                    QProcessEnvironment base = QProcessEnvironment::systemEnvironment()) const;
    // Sets them in this process (before the module is initialised).
    void apply(bool noCards = true) const;

    // Stores a certificate with its key pair straight into SoftHSM2, without the module.
    // Returns the identifier in hexadecimal, or an empty text.
    QString load(const TestCredential& credential, const QString& label = QString()) const;

    // Runs pkcs11-tool on this token, through our module (default) or on SoftHSM2 directly.
    // Returns the exit code (-1 when it could not run); output and errors go to `output`.
    int pkcs11Tool(const QStringList& args, QString* output = nullptr, bool throughModule = true) const;

private:
    QTemporaryDir dir_;
    QString label_;
    QString pin_;
    bool valid_ = false;
    QString error_;
};
