#include "capture/BRRecordingStatus.h"
#include "foundation/PXDefaults.h"

#include <gtest/gtest.h>

#include <QLocale>

using namespace Qt::StringLiterals;

namespace {

struct StatusCase {
    const char *name;
    double seconds;
    std::uint64_t bytes;
    std::optional<QString> text;
    bool showsDuration;
    bool showsSize;
    QLocale::Language language = QLocale::English;
};

const StatusCase kStatusCases[] = {
    {"begins", 0, 41, u"00:00"_s, true, false},
    {"clockWasSetBack", -5, 41, u"00:00"_s, true, false},
    {"secondsAreCutNotRounded", 59.999, 41, u"00:59"_s, true, false},
    {"firstSecondWithHours", 3600, 41, u"01:00:00"_s, true, false},
    {"longerThanCanBeCounted", 1e12, 41, u"1193046:28:15"_s, true, false},
    {"both", 125, 1'234'567, u"02:05, 1.2 MB"_s, true, true},
    {"bothInGerman", 125, 1'234'567, u"02:05, 1,2 MB"_s, true, true, QLocale::German},
    {"size", 3600, 999, u"999 bytes"_s, false, true},
    {"everythingOff", 3600, 1'234'567, std::nullopt, false, false},
};

TEST(RecordingStatus, ShowsWhatTheSettingsAskFor)
{
    PXDefaults &defaults = PXDefaults::standardUserDefaults();
    for (const StatusCase &c : kStatusCases) {
        defaults.setArgumentValue(u"showRecordingDurationInMenubar"_s, c.showsDuration);
        defaults.setArgumentValue(u"showRecordingSizeInMenubar"_s, c.showsSize);
        QLocale::setDefault(QLocale(c.language));
        EXPECT_EQ(BRRecordingStatusText(c.seconds, c.bytes), c.text) << c.name;
    }
    QLocale::setDefault(QLocale::system());
}

} // namespace
