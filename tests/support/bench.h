#pragma once

#include <QJsonObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// The smart-card bench for a test: a pcscd of its own with vpcd readers, and simulated
// keys (vantrel-sim) inserted and pulled on demand. It drives testbed/bench, which waits
// on what pcscd reports (socket up, readers listed, key seen or gone), never on time.
//
// libpcsclite reads PCSCLITE_CSOCK_NAME once per process, so every Bench of a process uses
// the same directory (one after the other; only one may run at a time). start() sets the
// variable in this process; environment() gives it to child processes.
class Bench
{
public:
    Bench();
    ~Bench(); // pulls every key, stops pcscd, removes the directory

    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    // Starts pcscd. Default readers: "Zorvik Vantrel Reader" (readers 0 and 1, vpcd) and
    // "Zorvik Virtual Card Reader" (reader 2, the phone driver). `options` go to `bench start`, e.g.
    // {"--no-readers"}, {"--extra", "4"} or {"--readers", "A,B"}.
    bool start(const QStringList& options = {});
    bool stop();

    // Inserts a simulated key into reader `reader` (vantrel-sim options in `cardOptions`,
    // e.g. {"--status", "4"} or {"--not-vantrel"}); returns once pcscd sees it.
    bool insert(int reader = 0, const QStringList& cardOptions = {})
    {
        return run(QStringList{"insert", "--reader", QString::number(reader)} + cardOptions);
    }
    // Pulls the key; returns once pcscd sees the reader empty.
    bool remove(int reader = 0) { return run({"remove", "--reader", QString::number(reader)}); }
    // Pulls every key.
    bool removeAll() { return run({"remove", "--all"}); }

    // Plays the phone behind the virtual reader: `bench phone <args>`, e.g.
    // {"appear", "--name", "Anna's phone"}, {"pair", "--code", "4711"}, {"fail-once"}.
    bool phone(const QStringList& args) { return run(QStringList{"phone"} + args); }
    // The phone driver's view (`bench phone state`), empty on failure.
    QJsonObject phoneState();

    // The smart-card service fails / recovers. Keys left in their readers are seen again.
    bool stopPcscd() { return run({"pcscd-stop"}); }
    bool startPcscd() { return run({"pcscd-start"}); }

    bool isRunning() const { return running; }
    QString directory() const { return dir; }
    // Reader names in pcscd's order, as configured at start.
    QStringList readerNames() const { return readers; }
    QString readerName(int reader) const { return readers.value(reader); }
    // What went wrong in the last failed call (the script's message).
    QString errorText() const { return error; }

    QProcessEnvironment environment(QProcessEnvironment base = QProcessEnvironment::systemEnvironment()) const;

private:
    bool run(const QStringList& args, QByteArray* output = nullptr);
    bool readState();

    QString dir;
    QString socket;
    QStringList readers;
    QString error;
    bool running = false;
};
