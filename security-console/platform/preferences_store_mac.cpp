// macOS back end of PreferencesStore: CoreFoundation application preferences of the
// current user on any host.
#include "preferences_store.h"

#include <CoreFoundation/CoreFoundation.h>

#include <memory>

namespace {

struct CFReleaser
{
    void operator()(CFTypeRef ref) const
    {
        if (ref)
            CFRelease(ref);
    }
};
using CFHolder = std::unique_ptr<const void, CFReleaser>;

CFHolder cfString(const QString& text)
{
    return CFHolder(text.toCFString());
}

} // namespace

QString PreferencesStore::filePath() const
{
    return QString();
}

std::optional<QVariant> PreferencesStore::readValue(const QString& key) const
{
    const CFHolder cfKey = cfString(key);
    const CFHolder cfDomain = cfString(domainName);
    const CFHolder value(
        CFPreferencesCopyAppValue(static_cast<CFStringRef>(cfKey.get()), static_cast<CFStringRef>(cfDomain.get())));
    if (!value)
        return std::nullopt;
    const CFTypeID type = CFGetTypeID(value.get());
    if (type == CFStringGetTypeID())
        return QVariant(QString::fromCFString(static_cast<CFStringRef>(value.get())));
    if (type == CFBooleanGetTypeID())
        return QVariant(static_cast<bool>(CFBooleanGetValue(static_cast<CFBooleanRef>(value.get()))));
    if (type == CFNumberGetTypeID()) {
        long long number = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(value.get()), kCFNumberLongLongType, &number);
        return QVariant(QString::number(number));
    }
    return std::nullopt;
}

bool PreferencesStore::writeValues(const QMap<QString, QVariant>& changes)
{
    const CFHolder cfDomain = cfString(domainName);
    const CFStringRef domain = static_cast<CFStringRef>(cfDomain.get());
    for (auto it = changes.constBegin(); it != changes.constEnd(); ++it) {
        const CFHolder cfKey = cfString(it.key());
        const CFStringRef key = static_cast<CFStringRef>(cfKey.get());
        if (!it.value().isValid()) {
            CFPreferencesSetAppValue(key, nullptr, domain);
        } else if (it.value().type() == QVariant::Bool) {
            CFPreferencesSetAppValue(key, it.value().toBool() ? kCFBooleanTrue : kCFBooleanFalse, domain);
        } else {
            const CFHolder text = cfString(it.value().toString());
            CFPreferencesSetAppValue(key, text.get(), domain);
        }
    }
    return CFPreferencesAppSynchronize(domain);
}
