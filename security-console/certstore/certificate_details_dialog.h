#pragma once

#include <QByteArray>
#include <QDialog>
#include <QSslCertificate>

namespace Ui {
class CertificateDetailsDialog;
}

// Shows one certificate of the key field by field.
class CertificateDetailsDialog : public QDialog
{
    Q_OBJECT
public:
    CertificateDetailsDialog(const QByteArray& pkcs11id, const QString& label, const QSslCertificate& certificate,
                             QWidget* parent = nullptr);
    ~CertificateDetailsDialog() override;

    Ui::CertificateDetailsDialog* form() const { return ui; }

public slots:
    void viewNativeButton();

protected:
    void hideEvent(QHideEvent* event) override;

private:
    Ui::CertificateDetailsDialog* ui;
    QByteArray der;
    QString tempPath;
};
