#pragma once

#include <QString>
#include <QThread>

#include "qvtoken.h"

struct KeyStatusRecord;

// Compares the firmware of the attached key with the versions the update API publishes and,
// when the user agrees, has the token library rewrite it.
//
// Use: set `mode` to 2 and run the thread once to fetch the published versions; then call
// NeedUpdateToken() on the GUI thread. It asks the user and, on consent, runs the thread in
// mode 1 behind a modal wait box until the key has been rewritten.
class TokenUpdate : public QThread
{
    Q_OBJECT
public:
    explicit TokenUpdate(QObject* parent = nullptr);
    ~TokenUpdate() override;

    QString seVersion; // published secure-element firmware ("sefw")
    QString mcVersion; // published controller firmware ("mcfw")
    int mode = 0;      // 2 fetch the published versions, 1 update the key, else nothing
    qvtoken_token_t token = nullptr;

    // 0 when nothing was done (no key, versions equal, no consent, versions unknown).
    int NeedUpdateToken();

    // The key's firmware version text: the first version bytes joined by dots, then a dot
    // and the second version bytes read as one big-endian number.
    static QString keyVersionText(const KeyStatusRecord& record);
    // The published version from an update API answer: the text before the first ";".
    static QString publishedVersion(const QString& body);

signals:
    void updateResult(int code, QString text);
    void updateFinished();

protected:
    void run() override;
};
