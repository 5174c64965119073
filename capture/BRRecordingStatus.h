#pragma once

#include <QString>

#include <cstdint>
#include <optional>

/// Where a recording shows that it runs: the tray, a terminal's live line. Called on any thread;
/// must not wait for the main thread.
class BRStatusItem {
public:
    /// The name of one of the resources "status-recording" and "status-normal".
    virtual void setStatusItemImage(const QString &imageName) = 0;
    /// Elapsed time and size; none at the end.
    virtual void setStatusItemText(const std::optional<QString> &text) = 0;

protected:
    ~BRStatusItem() = default;
};

/// "02:05", from an hour on "01:02:05". Negative times count as 0.
QString BRStringFromDuration(double seconds);

/// What the status shows: "02:05, 1.2 MB", or the one of the two that the defaults
/// "showRecordingDurationInMenubar" and "showRecordingSizeInMenubar" ask for, or none.
std::optional<QString> BRRecordingStatusText(double duration, std::uint64_t bytes);
