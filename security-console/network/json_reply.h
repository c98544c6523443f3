#pragma once

#include <QByteArray>
#include <QString>

#include <json/value.h>

#include <memory>

// A JSON answer from one of the Zorvik web services, read without trusting its shape.
//
// Every read checks the member's type first and never throws. A member that is absent
// (or null) gives the caller's fallback; a member that is there with another type gives the
// fallback too and marks the whole answer as malformed. Objects taken from an answer share
// its verdict, so one wellFormed() check after the reads covers them all:
//
//     JsonReply root = JsonReply::parse(body);
//     const bool error = root.boolean("error", true);
//     const QString title = root.object("message").text("title");
//     if (!root.wellFormed()) ... // not JSON, not an object, or a member of the wrong type
class JsonReply
{
public:
    // Parses `body` up to its first NUL byte. The answer is malformed unless it is a JSON
    // object.
    static JsonReply parse(const QByteArray& body);

    bool wellFormed() const { return *verdict; }

    // True when the member is there and not null.
    bool has(const char* name) const;
    bool boolean(const char* name, bool fallback = false) const;
    QString text(const char* name, const QString& fallback = QString()) const;
    // An absent member gives an empty object.
    JsonReply object(const char* name) const;

private:
    JsonReply(Json::Value value, std::shared_ptr<bool> verdict);
    // The member when it is there with the wanted type; null otherwise (and a wrong type
    // marks the answer malformed).
    const Json::Value* member(const char* name, Json::ValueType type) const;

    Json::Value value;
    std::shared_ptr<bool> verdict;
};
