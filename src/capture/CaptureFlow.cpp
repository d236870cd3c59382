#include "capture/CaptureFlow.h"

#include <utility>

namespace pixmora {

void CaptureFlow::start(Completion completion)
{
    m_completion = std::move(completion);
    run();
}

void CaptureFlow::finish(CaptureOutcome outcome)
{
    if (Completion completion = std::exchange(m_completion, nullptr))
        completion(std::move(outcome));
}

} // namespace pixmora
