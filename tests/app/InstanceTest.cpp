#include "app/InstanceClient.h"
#include "app/InstanceServer.h"
#include "platform/fake/FakePlatform.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <future>

using namespace pixmora;

namespace {

// A server and a client as two users' processes would see them: each with
// its own view of who is at the other end.
class InstanceTest : public ::testing::Test {
protected:
    InstanceTest() { QDir().mkpath(runtime); }

    InstanceLocation location() { return InstanceLocation::find(serverSide, runtime, root.path(), ":7"); }

    // The client blocks, as the command does; the server answers from this thread's event loop.
    InstanceClient::Outcome send(const QStringList &arguments)
    {
        InstanceClient client(clientSide, location(), [] { return std::optional<qint64>(); });
        auto outcome = std::async(std::launch::async, [&] { return client.send(arguments); });
        while (outcome.wait_for(std::chrono::milliseconds(5)) != std::future_status::ready)
            QCoreApplication::processEvents();
        return outcome.get();
    }

    QTemporaryDir root;
    QString runtime = root.filePath("run");
    FakeLocalSecurity serverSide, clientSide;
};

TEST_F(InstanceTest, TheSocketLivesInTheUsersRuntimeFolderElseInAPrivateFolderOfOurs)
{
    EXPECT_EQ(location().socketPath, runtime + "/pixmora-:7.socket");
    const QString fallback = root.filePath("pixmora-1000");
    for (const QString &unusable : {QString(), QString("relative"), runtime}) {
        serverSide.owners[runtime] = unusable == runtime ? 1001 : 1000;
        const InstanceLocation location = InstanceLocation::find(serverSide, unusable, root.path(), ":7");
        EXPECT_EQ(location.failure, std::nullopt);
        EXPECT_EQ(location.socketPath, fallback + "/pixmora-:7.socket");
        EXPECT_EQ(serverSide.status(fallback).mode, 0700);
    }
    // Another user made our fallback folder first, or it is open to others.
    const auto failure = [&] { return InstanceLocation::find(serverSide, {}, root.path(), ":7").failure; };
    serverSide.owners[fallback] = 1001;
    EXPECT_EQ(failure(), fallback + " belongs to another user (uid 1001)");
    serverSide.owners.remove(fallback);
    serverSide.modes[fallback] = 0777;
    EXPECT_EQ(failure(), fallback + " is open to other users (mode 0777)");
}

// The answer carries the command's reason; one server serves many commands.
TEST_F(InstanceTest, ACommandRunsOnceAndItsAnswerSaysWhetherItRan)
{
    InstanceServer server(serverSide, location());
    ASSERT_EQ(server.listen().kind, InstanceServer::Start::Kind::serving);
    QList<QStringList> received;
    server.onCommand = [&](const QStringList &arguments, const InstanceServer::Answer &answer) {
        received << arguments;
        answer(received.size() == 1 ? std::nullopt : std::optional<QString>("a capture is already in progress"));
    };
    EXPECT_TRUE(send({"capture", "screen"}).ran);
    const InstanceClient::Outcome second = send({"capture", "area"});
    EXPECT_FALSE(second.ran);
    EXPECT_EQ(second.reason, "a capture is already in progress");
    EXPECT_EQ(received, (QList<QStringList>{{"capture", "screen"}, {"capture", "area"}}));


    // Another user at either end is hung up on, and their socket is never talked to.
    serverSide.peerUser = 1001;
    EXPECT_EQ(send({"capture", "screen"}).reason, "Pixmora quit before it answered");
    serverSide.peerUser = 1000;
    clientSide.peerUser = 1001;
    const QString cannotStart = "Pixmora is not running and cannot start: " + location().socketPath;
    EXPECT_EQ(send({"capture", "screen"}).reason, cannotStart + " is served by another user (uid 1001)");
    clientSide.owners[location().socketPath] = 1001;
    EXPECT_EQ(send({"capture", "screen"}).reason, cannotStart + " belongs to another user (uid 1001)");
    EXPECT_EQ(received.size(), 2);
}

// A plain file where the socket goes stops the tray and every command, with the reason.
TEST_F(InstanceTest, AFileInTheSocketsPlaceIsReportedNotReplaced)
{
    ASSERT_TRUE(QFile(location().socketPath).open(QIODevice::WriteOnly));
    const InstanceServer::Start start = InstanceServer(serverSide, location()).listen();
    EXPECT_EQ(start.kind, InstanceServer::Start::Kind::failed);
    EXPECT_EQ(start.failure, location().socketPath + " is in the way: it is not Pixmora's socket");
    EXPECT_EQ(send({"capture", "screen"}).reason, "Pixmora is not running and cannot start: " + start.failure);
    EXPECT_TRUE(QFileInfo(location().socketPath).isFile());
}

} // namespace
