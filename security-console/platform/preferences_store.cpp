#include "preferences_store.h"

PreferencesStore::PreferencesStore(const QString& domain) : domainName(domain) {}

std::optional<QString> PreferencesStore::stringValue(const QString& key) const
{
    const std::optional<QVariant> value = readValue(key);
    if (!value || value->type() == QVariant::Bool)
        return std::nullopt;
    return value->toString();
}

std::optional<bool> PreferencesStore::boolValue(const QString& key) const
{
    const std::optional<QVariant> value = readValue(key);
    if (!value)
        return std::nullopt;
    if (value->type() == QVariant::Bool)
        return value->toBool();
    const QString text = value->toString().trimmed().toLower();
    if (text == "true" || text == "yes" || text == "1")
        return true;
    if (text == "false" || text == "no" || text == "0")
        return false;
    return std::nullopt;
}

void PreferencesStore::setString(const QString& key, const QString& value)
{
    pending.insert(key, QVariant(value));
}

void PreferencesStore::setBool(const QString& key, bool value)
{
    pending.insert(key, QVariant(value));
}

void PreferencesStore::remove(const QString& key)
{
    pending.insert(key, QVariant());
}

bool PreferencesStore::synchronize()
{
    if (pending.isEmpty())
        return true;
    if (!writeValues(pending))
        return false;
    pending.clear();
    return true;
}
