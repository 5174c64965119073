#include "app/cli/BRDevicesCommand.h"

#include "app/cli/BRExitStatus.h"
#include "app/cli/BRTerminal.h"
#include "platform/PXSoundPlatform.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

struct Devices {
    std::vector<PXAudioDevice> inputs;
    std::vector<PXAudioDevice> outputs;
    PXAudioDeviceID defaultInput = kPXNoAudioDevice;
    PXAudioDeviceID defaultOutput = kPXNoAudioDevice;
};

PXExpected<Devices> askFor(PXSoundPlatform &sound)
{
    Devices devices;
    const auto take
        = [](auto &place) { return [&place](auto answer) { place = std::move(answer); }; };
    const auto asked
        = sound.inputDevices()
              .map(take(devices.inputs))
              .and_then([&] { return sound.outputDevices().map(take(devices.outputs)); })
              .and_then([&] { return sound.defaultInputDevice().map(take(devices.defaultInput)); })
              .and_then(
                  [&] { return sound.defaultOutputDevice().map(take(devices.defaultOutput)); });
    if (!asked)
        return PXFail(asked.error());
    std::erase_if(devices.inputs, [](const PXAudioDevice &input) {
        return input.monitoredOutput != kPXNoAudioDevice;
    });
    return devices;
}

QJsonArray jsonOf(const std::vector<PXAudioDevice> &devices, PXAudioDeviceID defaultDevice)
{
    QJsonArray array;
    for (const PXAudioDevice &device : devices)
        array.append(QJsonObject{{u"uid"_s, device.uid},
                                 {u"name"_s, device.name},
                                 {u"default"_s, device.deviceID == defaultDevice}});
    return array;
}

void print(const QString &kind, const std::vector<PXAudioDevice> &devices,
           PXAudioDeviceID defaultDevice, qsizetype widthOfNames)
{
    for (const PXAudioDevice &device : devices)
        BRTerminal::print(u"%1 %2 %3 %4"_s.arg(
            kind.leftJustified(6),
            (device.deviceID == defaultDevice ? u"default"_s : QString()).leftJustified(7),
            device.name.leftJustified(widthOfNames), device.uid));
}

} // namespace

int BRRunDevicesCommand(PXSoundPlatform &sound, bool asJSON)
{
    const auto devices = askFor(sound);
    if (!devices) {
        BRTerminal::printError(devices.error());
        return BRExitStatusOfError(devices.error(), BRAccess::Reading);
    }
    if (asJSON) {
        const QJsonObject object{{u"inputs"_s, jsonOf(devices->inputs, devices->defaultInput)},
                                 {u"outputs"_s, jsonOf(devices->outputs, devices->defaultOutput)}};
        BRTerminal::print(QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact)));
        return BRExitDone;
    }
    qsizetype widthOfNames = 0;
    for (const auto *list : {&devices->inputs, &devices->outputs})
        for (const PXAudioDevice &device : *list)
            widthOfNames = std::max(widthOfNames, device.name.size());
    print(u"input"_s, devices->inputs, devices->defaultInput, widthOfNames);
    print(u"output"_s, devices->outputs, devices->defaultOutput, widthOfNames);
    return BRExitDone;
}
