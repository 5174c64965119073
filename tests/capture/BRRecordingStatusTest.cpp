#include "capture/BRRecordingStatus.h"
#include "foundation/PXDefaults.h"

#include <gtest/gtest.h>

#include <QLocale>

using namespace Qt::StringLiterals;

namespace {

struct StatusCase {
    const char *name;
    bool showsDuration;
    bool showsSize;
    double seconds;
    std::uint64_t bytes;
    std::optional<QString> text;
    QLocale::Language language = QLocale::English;
};

const StatusCase kStatusCases[] = {
    {"begins", true, false, 0, 41, u"00:00"_s},
    {"clockWasSetBack", true, false, -5, 41, u"00:00"_s},
    {"secondsAreCutNotRounded", true, false, 59.999, 41, u"00:59"_s},
    {"lastSecondWithoutHours", true, false, 3599, 41, u"59:59"_s},
    {"firstSecondWithHours", true, false, 3600, 41, u"01:00:00"_s},
    {"days", true, false, 360061, 41, u"100:01:01"_s},
    {"longerThanCanBeCounted", true, false, 1e12, 41, u"1193046:28:15"_s},
    {"both", true, true, 125, 1'234'567, u"02:05, 1.2 MB"_s},
    {"bothInGerman", true, true, 125, 1'234'567, u"02:05, 1,2 MB"_s, QLocale::German},
    {"bytes", false, true, 3600, 999, u"999 bytes"_s},
    {"roundsUpToTheNextUnit", false, true, 0, 999'950, u"1.0 MB"_s},
    {"beyondFourGigabytes", false, true, 0, 5'000'000'000, u"5.0 GB"_s},
    {"everythingOff", false, false, 3600, 1'234'567, std::nullopt},
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
