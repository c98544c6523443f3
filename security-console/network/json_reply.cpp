#include "json_reply.h"

#include <json/reader.h>

#include <cstring>

#include <sstream>

JsonReply::JsonReply(Json::Value value, std::shared_ptr<bool> verdict)
    : value(std::move(value)), verdict(std::move(verdict))
{
}

JsonReply JsonReply::parse(const QByteArray& body)
{
    const int nul = body.indexOf('\0');
    const QByteArray text = nul >= 0 ? body.left(nul) : body;
    Json::Value root;
    Json::CharReaderBuilder builder;
    std::string errors;
    std::istringstream stream(text.toStdString());
    const bool parsed = Json::parseFromStream(builder, stream, &root, &errors);
    return JsonReply(parsed && root.isObject() ? root : Json::Value(Json::objectValue),
                     std::make_shared<bool>(parsed && root.isObject()));
}

const Json::Value* JsonReply::member(const char* name, Json::ValueType type) const
{
    const Json::Value* found = value.find(name, name + std::strlen(name));
    if (!found || found->isNull())
        return nullptr;
    if (found->type() != type) {
        *verdict = false;
        return nullptr;
    }
    return found;
}

bool JsonReply::has(const char* name) const
{
    const Json::Value* found = value.find(name, name + std::strlen(name));
    return found && !found->isNull();
}

bool JsonReply::boolean(const char* name, bool fallback) const
{
    const Json::Value* found = member(name, Json::booleanValue);
    return found ? found->asBool() : fallback;
}

QString JsonReply::text(const char* name, const QString& fallback) const
{
    const Json::Value* found = member(name, Json::stringValue);
    return found ? QString::fromStdString(found->asString()) : fallback;
}

JsonReply JsonReply::object(const char* name) const
{
    const Json::Value* found = member(name, Json::objectValue);
    return JsonReply(found ? *found : Json::Value(Json::objectValue), verdict);
}
