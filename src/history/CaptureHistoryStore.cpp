#include "history/CaptureHistoryStore.h"

#include "platform/AtomicFile.h"
#include "platform/Logging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>

#include <algorithm>

namespace pixmora {

namespace {

constexpr QStringView nameFormat = u"yyyy-MM-dd HH-mm-ss-zzz";
constexpr QFile::Permissions privateFolder = QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner;
constexpr QFile::Permissions privateFile = QFile::ReadOwner | QFile::WriteOwner;
constexpr QFile::Permissions othersMay = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther
                                         | QFile::WriteOther | QFile::ExeOther;

QString fileName(const QDateTime &utcDate)
{
    return utcDate.toString(nameFormat) + QStringLiteral(".png");
}

// Only the exact shape that fileName writes is a history name, so that other
// files in the folder are never taken for captures, and never deleted.
std::optional<QDateTime> parseName(const QString &baseName)
{
    static const QRegularExpression pattern(
        QStringLiteral("^([0-9]{4})-([0-9]{2})-([0-9]{2}) ([0-9]{2})-([0-9]{2})-([0-9]{2})-([0-9]{3})$"));
    const QRegularExpressionMatch match = pattern.match(baseName);
    if (!match.hasMatch())
        return std::nullopt;
    const auto number = [&match](int field) { return match.capturedView(field).toInt(); };
    const QDate date(number(1), number(2), number(3));
    const QTime time(number(4), number(5), number(6), number(7));
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return QDateTime(date, time, Qt::UTC);
}

} // namespace

std::optional<QString> CaptureHistoryStore::defaultDirectory()
{
    const QString dataFolder = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation);
    if (dataFolder.isEmpty())
        return std::nullopt;
    const QString appFolder = dataFolder + QStringLiteral("/Pixmora");
    if (!QDir().mkpath(appFolder))
        return std::nullopt;
    return appFolder + QStringLiteral("/History");
}

CaptureHistoryStore::CaptureHistoryStore(QString directory) : m_directory(std::move(directory)) {}

// Two captures of the same millisecond (one per display) would share a name;
// the later one moves on by a millisecond until the name is free, which keeps
// names parseable and in capture order.
QString CaptureHistoryStore::freeFileName(const QDateTime &date) const
{
    QDateTime time = date.toUTC();
    while (true) {
        const QString path = m_directory + QLatin1Char('/') + fileName(time);
        const QFileInfo existing(path);
        if (!existing.exists() && !existing.isSymLink())
            return path;
        time = time.addMSecs(1);
    }
}

// Made private from the start, whatever the umask.
bool CaptureHistoryStore::makeFolder() const
{
    if (QFileInfo::exists(m_directory))
        return true;
    const QString parent = QFileInfo(m_directory).path();
    if ((QDir().mkpath(parent) && QDir().mkdir(m_directory, privateFolder)) || QFileInfo::exists(m_directory))
        return true;
    qCWarning(lcHistory) << "Could not make the history folder" << m_directory;
    return false;
}

void CaptureHistoryStore::secure()
{
    if (!QFileInfo(m_directory).isDir())
        return;
    const auto makePrivate = [](const QString &path, QFile::Permissions permissions) {
        if ((QFile::permissions(path) & othersMay) && !QFile::setPermissions(path, permissions))
            qCWarning(lcHistory).noquote() << "Could not make private:" << path;
    };
    makePrivate(m_directory, privateFolder);
    for (const Entry &entry : entries())
        makePrivate(entry.path, privateFile);
    removeAbandonedWrites(m_directory, [](const QString &name) {
        return name.endsWith(QLatin1String(".png"), Qt::CaseInsensitive) && parseName(name.chopped(4));
    });
}

std::optional<QString> CaptureHistoryStore::add(const QByteArray &png, const QDateTime &date)
{
    if (!date.isValid() || !makeFolder())
        return std::nullopt;
    const QString path = freeFileName(date);
    // A failed write must not leave a truncated PNG that would be listed.
    if (const std::optional<QString> reason = writeFileAtomically(path, png, privateFile)) {
        qCWarning(lcHistory).noquote() << "Could not keep a capture in the history:" << path << *reason;
        return std::nullopt;
    }
    prune();
    notifyListeners();
    return path;
}

std::vector<CaptureHistoryStore::Entry> CaptureHistoryStore::entries() const
{
    // System brings in dangling links, whose size then reads 0. Unsorted
    // keeps the listing's order for the stable sort below.
    const QFileInfoList items = QDir(m_directory).entryInfoList(QDir::Files | QDir::System, QDir::Unsorted);
    std::vector<Entry> result;
    for (const QFileInfo &item : items) {
        if (item.suffix().compare(QLatin1String("png"), Qt::CaseInsensitive) != 0)
            continue;
        if (const auto date = parseName(item.completeBaseName()))
            result.push_back({item.filePath(), *date, item.size()});
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const Entry &a, const Entry &b) { return a.date > b.date; });
    return result;
}

void CaptureHistoryStore::prune()
{
    std::vector<Entry> kept = entries();
    while (kept.size() > static_cast<size_t>(maxItems)) {
        deleteFile(kept.back());
        kept.pop_back();
    }
    qint64 total = 0;
    for (const Entry &entry : kept)
        total += entry.bytes;
    // The newest capture stays however large it is.
    while (total > maxBytes && kept.size() >= 2) {
        total -= kept.back().bytes;
        deleteFile(kept.back());
        kept.pop_back();
    }
}

void CaptureHistoryStore::deleteFile(const Entry &entry)
{
    QFile file(entry.path);
    if (!file.remove() && file.exists())
        qCWarning(lcHistory).noquote() << "Could not delete" << entry.path << file.errorString();
}

void CaptureHistoryStore::remove(const Entry &entry)
{
    deleteFile(entry);
    notifyListeners();
}

void CaptureHistoryStore::removeAll()
{
    for (const Entry &entry : entries())
        deleteFile(entry);
    notifyListeners();
}

int CaptureHistoryStore::addListener(std::function<void()> onChange)
{
    m_listeners.emplace(m_nextListenerId, std::move(onChange));
    return m_nextListenerId++;
}

void CaptureHistoryStore::removeListener(int id) { m_listeners.erase(id); }

// A listener may add or remove listeners while it is told.
void CaptureHistoryStore::notifyListeners()
{
    const auto listeners = m_listeners;
    for (const auto &[id, onChange] : listeners)
        if (onChange && m_listeners.contains(id))
            onChange();
}

} // namespace pixmora
