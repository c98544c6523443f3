#pragma once

#include <QString>
#include <QThread>

// Looks once per run for a newer Security Pack version.
class Check_Updates : public QThread
{
    Q_OBJECT
public:
    explicit Check_Updates(QObject* parent = nullptr);

    void Check(bool interactive);

    bool updateAvailable = false;
    QString version;
    QString changeLog;
    QString packageUrl;

signals:
    void SPUpdatesChecked(bool interactive);

protected:
    void run() override;

private:
    bool interactive = false;
};
