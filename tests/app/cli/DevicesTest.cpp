#include "tests/app/cli/CommandLine.h"
#include "tests/support/SoundServer.h"

#include <gmock/gmock.h>

#include <QJsonArray>
#include <QJsonDocument>

using namespace Qt::StringLiterals;
using testing::HasSubstr;

namespace {

class DevicesTest : public CommandLineTest,
                    public testing::WithParamInterface<SoundServer::Kind> { };

INSTANTIATE_TEST_SUITE_P(Servers, DevicesTest, testing::ValuesIn(SoundServer::installed()),
                         testing::PrintToStringParamName());

/// "uid (name)*", with the star where it is the default.
QStringList described(const QJsonValue &devices)
{
    QStringList result;
    for (const auto each : devices.toArray()) {
        const QJsonObject device = each.toObject();
        result.append(u"%1 (%2)%3"_s.arg(device.value(u"uid"_s).toString(),
                                         device.value(u"name"_s).toString(),
                                         device.value(u"default"_s).toBool() ? u"*"_s : u""_s));
    }
    return result;
}

TEST_P(DevicesTest, ListsInputsAndOutputs)
{
    SoundServer server(GetParam());
    server.load({u"module-null-sink"_s, u"sink_name=tolvane_audio"_s,
                 u"sink_properties=device.description=Virtual"_s});
    const Variables variables{{u"PULSE_SERVER"_s, server.name()}};
    const Outcome json = run({u"devices"_s, u"--json"_s}, variables);
    EXPECT_EQ(json.status, 0) << json.errors.toStdString();
    const QJsonObject devices = QJsonDocument::fromJson(json.output.toUtf8()).object();
    // The monitors of the outputs are no microphones.
    EXPECT_EQ(described(devices.value(u"inputs"_s)), QStringList{u"mic (FakeMic)*"_s});
    const QStringList outputs = described(devices.value(u"outputs"_s));
    EXPECT_EQ(outputs.size(), 4);
    EXPECT_TRUE(outputs.contains(u"real_out (RealOut)*"_s));
    EXPECT_TRUE(outputs.contains(u"com_PexarWorks_driver_BRAudioEngine:0 (Virtual)"_s));

    const Outcome text = run({u"devices"_s}, variables);
    EXPECT_EQ(text.status, 0);
    const QStringList lines = text.output.trimmed().split(u'\n');
    ASSERT_EQ(lines.size(), 5);
    EXPECT_TRUE(lines.first().startsWith(u"input  default FakeMic "_s));
    const qsizetype column = lines.first().indexOf(u" mic"_s);
    for (const QString &line : lines)
        EXPECT_EQ(line.lastIndexOf(u' '), column) << line.toStdString();

    server.kill();
    const Outcome alone = run({u"devices"_s}, variables);
    EXPECT_EQ(alone.status, 5);
    EXPECT_EQ(alone.output, QString());
    EXPECT_EQ(alone.errors.count(u'\n'), 1) << alone.errors.toStdString();
    EXPECT_THAT(alone.errors.toStdString(), HasSubstr("Could not reach the sound server: "));
}

} // namespace
