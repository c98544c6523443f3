#include "token_update.h"

#include "log.h"
#include "modal_seam.h"
#include "os_platform.h"
#include "web_access.h"

#include <QApplication>
#include <QCoreApplication>
#include <QMessageBox>

#include <memory>

namespace {

const char* const kInformative = QT_TRANSLATE_NOOP(
    "Warning messages",
    "Update procedure can take about 5-15 minutes. \nPlease do not remove your key untill end of operation");

struct SearchDeleter {
    void operator()(qvtoken_search* search) const { qvtoken_destroySearch(search); }
};
using SearchPtr = std::unique_ptr<qvtoken_search, SearchDeleter>;

struct ContextDeleter {
    void operator()(qvtoken_context* context) const { qvtoken_releaseContext(context); }
};
using ContextPtr = std::unique_ptr<qvtoken_context, ContextDeleter>;

} // namespace

TokenUpdate::TokenUpdate(QObject* parent) : QThread(parent)
{
}

TokenUpdate::~TokenUpdate()
{
    wait();
}

QString TokenUpdate::keyVersionText(const KeyStatusRecord& record)
{
    const int n = qBound<int>(0, record.firstVersionLen, QVTOKEN_VERSION_MAX);
    QString text = QString::number(record.firstVersion[0]);
    for (int i = 1; i < n; ++i)
        text = QString("%1.%2").arg(text).arg(record.firstVersion[i]);
    const int m = qBound<int>(0, record.secondVersionLen, QVTOKEN_VERSION_MAX);
    quint32 build = 0;
    for (int i = 0; i < m; ++i)
        build = (build << 8) | record.secondVersion[i];
    return text + "." + QString::number(build);
}

QString TokenUpdate::publishedVersion(const QString& body)
{
    const int semicolon = body.indexOf(';');
    return semicolon < 0 ? body : body.left(semicolon);
}

int TokenUpdate::NeedUpdateToken()
{
    SearchPtr search(qvtoken_initSearch());
    Log::print(Log::DEBUG, "checkTokenUpdate qvtoken_findNextToken");
    qvtoken_token_t key = qvtoken_findNextToken(search.get(), 400);
    Log::print(Log::DEBUG, "checkTokenUpdate qvtoken_findNextToken -- END");
    if (!key)
        return 0;

    const KeyStatusRecord record = qvtoken_getTokenStatus(key, nullptr, nullptr);
    const QString keyVersion = keyVersionText(record);
    const QString keyController = QString::fromLatin1(
        record.controllerVersion, static_cast<int>(qstrnlen(record.controllerVersion, QVTOKEN_CONTROLLER_MAX)));

    // Without the published versions every key would look outdated: ask nothing.
    if (seVersion.isEmpty() || mcVersion.isEmpty()) {
        Log::print(Log::DEBUG, "checkTokenUpdate: published firmware versions unknown");
        return 0;
    }
    if (keyVersion == seVersion && keyController == mcVersion)
        return 0;
    Log::print(Log::DEBUG, QString("checkTokenUpdate: key %1;%2, published %3;%4")
                               .arg(keyVersion, keyController, seVersion, mcVersion));

    QMessageBox ask;
    ask.setWindowTitle(QCoreApplication::translate("Dialog titles", "%1: Update ZORVIK Key").arg("Zorvik Dashboard"));
    ask.setText(QCoreApplication::translate("Warning messages", "Your Key is outdated. Do you want to update your Key?"));
    ask.setInformativeText(QCoreApplication::translate("Warning messages", kInformative));
    ask.setStandardButtons(QMessageBox::No | QMessageBox::Ok);
    if (ModalSeam::exec(&ask) != QMessageBox::Ok)
        return 0;

    Log::print(Log::DEBUG, "Starting token update procedure");
    if (isRunning()) {
        Log::print(Log::ERR, "Can't start token upgrade process already running");
        return 0;
    }
    QMessageBox wait;
    connect(this, &TokenUpdate::updateFinished, &wait, &QMessageBox::reject);
    wait.setWindowTitle(QCoreApplication::translate("Dialog titles", "Zorvik Dashboard"));
    wait.setText(QCoreApplication::translate("Window messages", "Updating token. Please wait"));
    wait.setInformativeText(QCoreApplication::translate("Warning messages", kInformative));
    wait.setStandardButtons(QMessageBox::NoButton);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    token = key;
    mode = 1;
    start();
    ModalSeam::exec(&wait);
    QApplication::restoreOverrideCursor();
    // The run has closed the key; the search goes with the pointer.
    return 1;
}

void TokenUpdate::run()
{
    if (mode == 2) {
        WebAccess web;
        const QString base = OsPlatform::updateApiUrl() + "/api/";
        seVersion = publishedVersion(web.syncGet(base + "version.txt?package=sefw&platform=hard"));
        mcVersion = publishedVersion(web.syncGet(base + "version.txt?package=mcfw&platform=hard"));
        Log::print(Log::DEBUG, QString("Published firmware versions: %1 %2").arg(seVersion, mcVersion));
        return;
    }
    if (mode != 1)
        return;

    Log::print(Log::DEBUG, "Update Token");
    ContextPtr context(qvtoken_getContext());
    qvtoken_setParam(context.get(), QVTOKEN_PARAM_TOKEN, token);
    const QByteArray target = QString("%1;%2").arg(seVersion, mcVersion).toLatin1();
    int code = 0;
    char text[256] = {0};
    qvtoken_userfeOperation(context.get(), "upgradecode", 0, target.constData(), &code, text, sizeof text);
    const QString resultText = QString::fromUtf8(text);
    Log::print(Log::DEBUG, QString("Update Token result: %1 %2").arg(code).arg(resultText));
    emit updateFinished();
    emit updateResult(code, resultText);
    context.reset();
    qvtoken_closeToken(token);
    token = nullptr;
}
