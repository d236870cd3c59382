#include "PlatformTestSupport.h"

#include "platform/x11/QtDialogs.h"

#include <QApplication>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTimer>

#include <gtest/gtest.h>

#include <functional>

namespace pixmora::e2e {
namespace {

// Calls answer with the first visible dialog of the type once it is up.
template <typename Dialog>
void answerWhenShown(std::function<void(Dialog *)> answer)
{
    auto *poll = new QTimer;
    poll->setInterval(10);
    QObject::connect(poll, &QTimer::timeout, [poll, answer] {
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            auto *dialog = qobject_cast<Dialog *>(widget);
            if (dialog && dialog->isVisible()) {
                poll->stop();
                poll->deleteLater();
                answer(dialog);
                return;
            }
        }
    });
    poll->start();
}

TEST(DialogsTest, AlertShowsButtonsInOrderAndAnswersTheIndex)
{
    QtDialogs dialogs;
    QStringList seen;
    QString text;
    answerWhenShown<QMessageBox>([&](QMessageBox *box) {
        text = box->text();
        for (QAbstractButton *button : box->buttons())
            seen.append(button->text());
        box->buttons().at(1)->click();
    });
    const int answer = dialogs.runAlert(Alert{QStringLiteral("Launch <Pixmora> at Login?"), QStringLiteral("Details."),
                                              {QStringLiteral("Launch at Login"), QStringLiteral("Not Now")}});
    EXPECT_EQ(answer, 1);
    EXPECT_EQ(seen, (QStringList{QStringLiteral("Launch at Login"), QStringLiteral("Not Now")}));
    EXPECT_EQ(text, QStringLiteral("<b>Launch &lt;Pixmora&gt; at Login?</b>"));

    answerWhenShown<QMessageBox>([](QMessageBox *box) { box->defaultButton()->click(); });
    EXPECT_EQ(dialogs.runAlert(Alert{QStringLiteral("Two"), QString(), {QStringLiteral("First"), QStringLiteral("Second")}}), 0)
        << "the first button is the default";
}

TEST(DialogsTest, FolderPanelChoosesOneDirectoryFromTheStartFolder)
{
    QTemporaryDir start;
    ASSERT_TRUE(QDir(start.path()).mkdir(QStringLiteral("Shots")));
    const QString shots = QDir(start.path()).filePath(QStringLiteral("Shots"));
    QtDialogs dialogs;

    answerWhenShown<QFileDialog>([&](QFileDialog *dialog) {
        EXPECT_EQ(dialog->windowTitle(), QStringLiteral("Choose where captures go"));
        EXPECT_EQ(dialog->labelText(QFileDialog::Accept), QStringLiteral("Save Here"));
        EXPECT_EQ(dialog->fileMode(), QFileDialog::Directory);
        EXPECT_EQ(QDir(dialog->directory()).canonicalPath(), QDir(start.path()).canonicalPath());
        dialog->selectFile(shots);
        static_cast<QDialog *>(dialog)->accept();  // QFileDialog hides it
    });
    const auto chosen = dialogs.chooseFolder(start.path(), QStringLiteral("Choose where captures go"), QStringLiteral("Save Here"));
    ASSERT_TRUE(chosen);
    EXPECT_EQ(QDir(*chosen).canonicalPath(), QDir(shots).canonicalPath());

    answerWhenShown<QFileDialog>([](QFileDialog *dialog) { dialog->reject(); });
    EXPECT_FALSE(dialogs.chooseFolder(start.path(), QStringLiteral("Again"), QStringLiteral("Save Here")));
}

TEST(DialogsTest, SavePanelProposesTheNameAndAddsThePngSuffix)
{
    QTemporaryDir folder;
    QtDialogs dialogs;
    answerWhenShown<QFileDialog>([&](QFileDialog *dialog) {
        EXPECT_EQ(dialog->acceptMode(), QFileDialog::AcceptSave);
        ASSERT_FALSE(dialog->selectedFiles().isEmpty());
        EXPECT_EQ(QFileInfo(dialog->selectedFiles().first()).fileName(), QStringLiteral("Screenshot edited.png"));
        dialog->setDirectory(folder.path());
        dialog->selectFile(QStringLiteral("Screenshot edited"));
        static_cast<QDialog *>(dialog)->accept();  // QFileDialog hides it
    });
    const auto chosen = dialogs.choosePngSaveLocation(QStringLiteral("Screenshot edited"));
    ASSERT_TRUE(chosen);
    EXPECT_EQ(QFileInfo(*chosen).fileName(), QStringLiteral("Screenshot edited.png"));
    EXPECT_EQ(QFileInfo(*chosen).dir().canonicalPath(), QDir(folder.path()).canonicalPath());
}

} // namespace
} // namespace pixmora::e2e
