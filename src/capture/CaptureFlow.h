#pragma once

#include "image/CapturedImage.h"
#include "platform/Error.h"

#include <QList>
#include <QObject>

#include <functional>
#include <optional>

namespace pixmora {

// How a capture flow ended: with images to deliver, with an error the user
// must see, or cancelled (neither).
struct CaptureOutcome {
    QList<CapturedImage> images;
    std::optional<Error> error;

    static CaptureOutcome captured(QList<CapturedImage> images) { return {std::move(images), std::nullopt}; }
    static CaptureOutcome failed(const Error &error) { return {{}, error}; }
    static CaptureOutcome cancelled() { return {}; }
};

// Everything between a capture command and the images it yields: one object
// per capture mode. The application controller runs one at a time and
// learns how it ended from its completion.
class CaptureFlow : public QObject {
    Q_OBJECT

public:
    using Completion = std::function<void(CaptureOutcome)>;

    // Runs the flow; the completion is called exactly once, maybe before
    // start returns. It must not delete the flow at once (deleteLater does):
    // the flow usually calls it from inside one of its own handlers.
    void start(Completion completion);

protected:
    virtual void run() = 0;
    // Only the first call counts.
    void finish(CaptureOutcome outcome);

private:
    Completion m_completion;
};

} // namespace pixmora
