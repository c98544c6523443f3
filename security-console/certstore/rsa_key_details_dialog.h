#pragma once

#include <QByteArray>
#include <QDialog>

namespace Ui {
class RsaKeyDetailsDialog;
}

// Shows one RSA key pair of the key: identifier, label, modulus and exponent.
class RsaKeyDetailsDialog : public QDialog
{
    Q_OBJECT
public:
    RsaKeyDetailsDialog(const QByteArray& pkcs11id, const QString& label, const QByteArray& modulus,
                        const QByteArray& exponent, QWidget* parent = nullptr);
    ~RsaKeyDetailsDialog() override;

    Ui::RsaKeyDetailsDialog* form() const { return ui; }

private:
    Ui::RsaKeyDetailsDialog* ui;
};
