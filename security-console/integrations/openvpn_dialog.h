#pragma once

#include <QDialog>
#include <QMap>
#include <QStringList>

namespace Ui {
class OpenVPNDialog;
}

// Describes one OpenVPN connection: name, server address, port, CA file and the key's
// certificate to use.
class OpenVPNDialog : public QDialog
{
    Q_OBJECT
public:
    OpenVPNDialog(const QString& configDir, const QString& name, const QString& port,
                  const QMap<QString, QString>& certs, QWidget* parent = nullptr);
    ~OpenVPNDialog() override;

    // The serialized id of the chosen certificate.
    QString cert() const;
    // The texts of the name, address, port and CA fields, in that order.
    QStringList fieldTexts() const;
    Ui::OpenVPNDialog* form() const { return ui; }

public slots:
    void slotChanged(const QString& text);
    void slotBrowse();
    void slotOk();

private:
    Ui::OpenVPNDialog* ui = nullptr;
    QString configDir;
    QMap<QString, QString> certs;
};
