#include "app/InstanceLocation.h"

#include "platform/LocalSecurity.h"
#include "platform/Logging.h"

#include <QDir>
#include <QRegularExpression>

namespace pixmora {

namespace {

using Kind = LocalSecurity::FileStatus::Kind;

QString octal(int mode) { return QStringLiteral("0%1").arg(mode, 3, 8, QLatin1Char('0')); }

std::optional<QString> privateFolderProblem(LocalSecurity &security, const QString &folder)
{
    const LocalSecurity::FileStatus status = security.status(folder);
    if (status.kind != Kind::folder)
        return QStringLiteral("%1 is not a folder").arg(folder);
    if (status.owner != security.userId())
        return QStringLiteral("%1 belongs to another user (uid %2)").arg(folder).arg(status.owner);
    if (status.mode & 077)
        return QStringLiteral("%1 is open to other users (mode %2)").arg(folder, octal(status.mode));
    return std::nullopt;
}

} // namespace

InstanceLocation InstanceLocation::find(LocalSecurity &security, const QString &runtimeFolder,
                                        const QString &temporaryFolder, const QString &display)
{
    QString folder;
    const bool runtimeIsOurs = QDir::isAbsolutePath(runtimeFolder)
                               && security.status(runtimeFolder).kind == Kind::folder
                               && security.status(runtimeFolder).owner == security.userId();
    if (runtimeIsOurs) {
        folder = QDir::cleanPath(runtimeFolder);
    } else {
        if (!runtimeFolder.isEmpty())
            qCWarning(lcApp).noquote() << "Not using XDG_RUNTIME_DIR" << runtimeFolder
                                       << "for Pixmora's socket: it is not a folder of this user";
        folder = QDir::cleanPath(temporaryFolder) + QStringLiteral("/pixmora-%1").arg(security.userId());
        if (security.status(folder).kind == Kind::missing) {
            if (const std::optional<QString> reason = security.makePrivateFolder(folder))
                if (security.status(folder).kind == Kind::missing)  // else another start made it meanwhile
                    return {{}, {}, {}, QStringLiteral("cannot make %1: %2").arg(folder, *reason)};
        }
        if (const std::optional<QString> problem = privateFolderProblem(security, folder))
            return {{}, {}, {}, problem};
    }
    QString session = display.isEmpty() ? QStringLiteral("none") : display;
    session.replace(QRegularExpression(QStringLiteral("[^A-Za-z0-9_.:-]")), QStringLiteral("_"));
    const QString base = folder + QStringLiteral("/pixmora-") + session;
    return {base + QStringLiteral(".socket"), base + QStringLiteral(".lock"), base + QStringLiteral(".log"),
            std::nullopt};
}

InstanceLocation InstanceLocation::forThisSession(LocalSecurity &security)
{
    return find(security, qEnvironmentVariable("XDG_RUNTIME_DIR"), QDir::tempPath(),
                qEnvironmentVariable("DISPLAY"));
}

std::optional<QString> InstanceLocation::socketProblem(LocalSecurity &security) const
{
    const LocalSecurity::FileStatus status = security.status(socketPath);
    if (status.kind == Kind::missing)
        return std::nullopt;
    if (status.owner != security.userId())
        return QStringLiteral("%1 belongs to another user (uid %2)").arg(socketPath).arg(status.owner);
    if (status.kind != Kind::socket)
        return QStringLiteral("%1 is in the way: it is not Pixmora's socket").arg(socketPath);
    return std::nullopt;
}

} // namespace pixmora
