#include "util/StageContext.h"

#include <utility>

void StageContext::queueProgress(std::function<std::optional<ProgressUpdate>()> update)
{
    fbQ().cancelAllOperations();
    fbQ().addOperationWithBlock([this, update = std::move(update)] {
        if (const auto values = update())
            updateProgress(*values);
    });
}
