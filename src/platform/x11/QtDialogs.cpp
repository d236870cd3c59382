#include "platform/x11/QtDialogs.h"

#include "platform/Desktop.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>

namespace pixmora {

int QtDialogs::runAlert(const Alert &alert)
{
    m_desktop.activateApplication();
    QMessageBox box;
    const QIcon icon = QApplication::windowIcon();
    if (!icon.isNull())
        box.setIconPixmap(icon.pixmap(64));
    box.setTextFormat(Qt::RichText);
    box.setText(QStringLiteral("<b>%1</b>").arg(alert.message.toHtmlEscaped()));
    box.setInformativeText(alert.informative);
    // One role for all keeps the buttons in the given order, the first the default.
    QList<QAbstractButton *> buttons;
    for (const QString &title : alert.buttons)
        buttons.append(box.addButton(title, QMessageBox::ActionRole));
    if (buttons.isEmpty())
        buttons.append(box.addButton(QMessageBox::Ok));
    box.setDefaultButton(qobject_cast<QPushButton *>(buttons.first()));
    for (QAbstractButton *button : buttons)
        if (button->text() == QLatin1String("Cancel") || buttons.size() == 1)
            box.setEscapeButton(button);
    box.exec();
    // Without an escape button the box cannot close any other way than by a button.
    const auto index = buttons.indexOf(box.clickedButton());
    return index >= 0 ? int(index) : int(buttons.size()) - 1;
}

std::optional<QString> QtDialogs::chooseFolder(const QString &startFolder, const QString &message,
                                               const QString &confirmButton)
{
    m_desktop.activateApplication();
    QFileDialog dialog(nullptr, message, startFolder);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setAcceptMode(QFileDialog::AcceptOpen);
    if (!confirmButton.isEmpty())
        dialog.setLabelText(QFileDialog::Accept, confirmButton);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().first();
}

std::optional<QString> QtDialogs::choosePngSaveLocation(const QString &proposedName)
{
    m_desktop.activateApplication();
    QString folder = QStandardPaths::writableLocation(QStandardPaths::PicturesLocation);
    if (folder.isEmpty() || !QDir(folder).exists())
        folder = QDir::homePath();
    QFileDialog dialog(nullptr, QString(), folder, QStringLiteral("PNG image (*.png)"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setDefaultSuffix(QStringLiteral("png"));
    dialog.selectFile(proposedName);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().first();
}

} // namespace pixmora
