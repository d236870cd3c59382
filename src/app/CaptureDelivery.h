#pragma once

#include "image/CapturedImage.h"
#include "platform/Platform.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

#include <optional>

namespace pixmora {

class CaptureHistoryStore;
class SaveLocationStore;
class Settings;

// Where every finished capture goes, as the settings say: the clipboard,
// PNG files in the save folder, and always the history. Failures to save are
// shown in one alert; everything else still happens.
class CaptureDelivery {
public:
    // What one delivery left behind, for editing the capture later.
    struct Delivered {
        QStringList savedPaths;  // the files written, in image order
        QByteArray primaryPng;   // the first image encoded; empty when that failed
    };

    // history: nothing when the history folder cannot be had.
    CaptureDelivery(Settings &settings, SaveLocationStore &saveLocation, CaptureHistoryStore *history,
                    Platform platform);

    // images: one per display for a full-screen capture, one otherwise; the
    // first is the primary image. Each is encoded once.
    Delivered deliver(const QList<CapturedImage> &images);

private:
    // PNG items on the clipboard; encodings that failed (empty) are left out,
    // and with none left the clipboard is not touched.
    void putOnPasteboard(const QList<QByteArray> &pngs);
    QStringList saveToFolder(const QList<QByteArray> &pngs);
    void addToHistory(const QList<QByteArray> &pngs);
    void showAlert(const QString &message, const QString &informative);

    Settings &m_settings;
    SaveLocationStore &m_saveLocation;
    CaptureHistoryStore *m_history;
    Platform m_platform;
};

} // namespace pixmora
