// quillmoss devices: the audio input devices of the sound server, and the one
// calls record from.
#include "audio/AudioDeviceManager.h"
#include "cli/Cli.h"
#include "core/InterruptWatcher.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

const auto usage =
    u"devices                 list the inputs (* the default, [selected] your choice)\n"
    u"devices --watch         list them again whenever they change, until Ctrl-C\n"
    u"devices select ID       record calls from this input\n"_s;

using Error = AudioDeviceManager::AudioDeviceError;

bool unreachable(const AudioDeviceManager& manager)
{
    return manager.lastErrorCode() == Error::CannotGetDevices ||
           manager.lastErrorCode() == Error::CannotGetDeviceProperties;
}

void waitForDiscovery(AudioDeviceManager& manager)
{
    if (!manager.isLoading()) {
        return;
    }
    QEventLoop loop;
    QObject::connect(&manager, &AudioDeviceManager::isLoadingChanged, &loop, [&] {
        if (!manager.isLoading()) {
            loop.quit();
        }
    });
    loop.exec();
}

QString listing(const AudioDeviceManager& manager, bool json)
{
    const QList<AudioDevice>& devices = manager.availableInputDevices();
    const QString selected = manager.selectedDeviceId();
    if (json) {
        QJsonArray array;
        for (const AudioDevice& device : devices) {
            array.append(QJsonObject{
                {u"id"_s, device.id},
                {u"name"_s, device.name},
                {u"manufacturer"_s, device.manufacturer},
                {u"isDefault"_s, device.isDefault},
                {u"deviceID"_s, static_cast<qint64>(device.deviceID)},
                {u"selected"_s, device.id == selected},
            });
        }
        return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact)) + u'\n';
    }
    if (devices.isEmpty()) {
        return u"No audio input devices.\n"_s;
    }
    qsizetype width = 0;
    for (const AudioDevice& device : devices) {
        width = std::max(width, device.id.size());
    }
    QString text;
    for (const AudioDevice& device : devices) {
        text += (device.isDefault ? u"* "_s : u"  "_s) + device.id.leftJustified(width) + u"  "_s +
                device.name;
        if (device.manufacturer != u"Unknown"_s) {
            text += u" ("_s + device.manufacturer + u')';
        }
        if (device.id == selected) {
            text += u"  [selected]"_s;
        }
        text += u'\n';
    }
    return text;
}

int list(CliContext& context, AudioDeviceManager& manager)
{
    waitForDiscovery(manager);
    if (unreachable(manager)) {
        return context.fail(manager.lastError());
    }
    context.out << listing(manager, context.json) << Qt::flush;
    return ExitDone;
}

// Prints the list, then again whenever it (or the server's reachability)
// changes, until SIGINT or SIGTERM.
int watch(CliContext& context, AudioDeviceManager& manager)
{
    QEventLoop loop;
    const InterruptWatcher interrupts;
    QObject::connect(&interrupts, &InterruptWatcher::interrupted, &loop, &QEventLoop::quit);
    QString shown;
    bool first = true;
    const auto show = [&] {
        if (manager.isLoading()) {
            return;
        }
        const QString now =
            unreachable(manager) ? manager.lastError() : listing(manager, context.json);
        if (now == shown) {
            return;
        }
        shown = now;
        if (unreachable(manager)) {
            context.err << u"quillmoss: "_s << now << Qt::endl;
            return;
        }
        // Lists are told apart by a blank line; JSON is one array per line.
        if (!first && !context.json) {
            context.out << u'\n';
        }
        first = false;
        context.out << now << Qt::flush;
    };
    QObject::connect(&manager, &AudioDeviceManager::discoveryFinished, &loop, show);
    show();
    loop.exec();
    return ExitDone;
}

int select(CliContext& context, AudioDeviceManager& manager, const QString& id)
{
    waitForDiscovery(manager);
    if (unreachable(manager)) {
        return context.fail(manager.lastError());
    }
    if (!manager.selectDeviceById(id)) {
        return context.fail(
            u"there is no audio input \"%1\" (quillmoss devices lists them)"_s.arg(id));
    }
    return ExitDone;
}

int run(CliContext& context, const QStringList& arguments)
{
    const QString verb = arguments.value(0);
    const qsizetype count = arguments.size();
    const bool listing = count == 0;
    const bool watching = count == 1 && verb == u"--watch"_s;
    const bool selecting = count == 2 && verb == u"select"_s;
    if (!listing && !watching && !selecting) {
        return context.usageError(u"wrong use of devices"_s, usage);
    }
    AudioDeviceManager manager(context.settings());
    if (watching) {
        return watch(context, manager);
    }
    if (selecting) {
        return select(context, manager, arguments.at(1));
    }
    return list(context, manager);
}

} // namespace

Subcommand devicesSubcommand()
{
    return {u"devices"_s, u"List the audio inputs and choose the one calls record from."_s, usage,
            run};
}
