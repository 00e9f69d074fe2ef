#include "capture/AudioDeviceManager.h"

#include "PulseAudioServer.h"
#include "app/SettingsStore.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString virtualMicrophone = QString::fromLatin1(PulseAudioServer::virtualMicrophone);

QStringList idsOf(const QList<AudioDevice>& devices)
{
    QStringList ids;
    for (const AudioDevice& device : devices) {
        ids.append(device.id);
    }
    return ids;
}

std::optional<AudioDevice> find(const QList<AudioDevice>& devices, const QString& id)
{
    for (const AudioDevice& device : devices) {
        if (device.id == id) {
            return device;
        }
    }
    return std::nullopt;
}

} // namespace

// Against a real private PulseAudio server whose only input is the virtual
// microphone (the two null outputs bring monitors, which are not inputs).
class AudioDeviceManagerTest : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PulseAudioServer> m_server;
    QTemporaryDir m_directory;
    std::unique_ptr<SettingsStore> m_settings;

    // A manager whose first discovery is done.
    std::unique_ptr<AudioDeviceManager> discovered()
    {
        auto manager = std::make_unique<AudioDeviceManager>(*m_settings);
        QSignalSpy finished(manager.get(), &AudioDeviceManager::discoveryFinished);
        if (!finished.wait(10000)) {
            return nullptr;
        }
        return manager;
    }

private Q_SLOTS:
    void initTestCase()
    {
        m_server = std::make_unique<PulseAudioServer>();
        QVERIFY2(m_server->isRunning(), qPrintable(m_server->error()));
    }

    void init()
    {
        m_settings = std::make_unique<SettingsStore>(m_directory.filePath(u"settings.json"_s));
        m_settings->remove(QString::fromLatin1(AudioDeviceManager::selectedDeviceKey));
    }

    void listsInputsOnlyWithTheDefaultMarked()
    {
        const auto manager = discovered();
        QVERIFY(manager);
        QVERIFY(!manager->isLoading());
        QCOMPARE(manager->lastErrorCode(), AudioDeviceManager::AudioDeviceError::None);
        const QString index = m_server->pactl({u"list"_s, u"short"_s, u"sources"_s})
                                  .value_or(QString())
                                  .split(u'\n')
                                  .filter(virtualMicrophone)
                                  .value(0)
                                  .section(u'\t', 0, 0);
        AudioDevice expected;
        expected.id = virtualMicrophone;
        expected.name = QString::fromLatin1(PulseAudioServer::virtualMicrophoneDescription);
        expected.manufacturer = u"Unknown"_s;
        expected.isDefault = true;
        expected.deviceID = index.toUInt();
        QCOMPARE(manager->availableInputDevices(), QList<AudioDevice>{expected});
        QCOMPARE(manager->availableInputDeviceList(), QVariantList{QVariant::fromValue(expected)});
    }

    void followsDevicesComingAndGoing()
    {
        const auto manager = discovered();
        QVERIFY(manager);
        const std::optional<int> headset =
            m_server->addVirtualSource(u"headset_mic"_s, u"Headset microphone"_s);
        QVERIFY(headset);
        QTRY_COMPARE(idsOf(manager->availableInputDevices()),
                     (QStringList{virtualMicrophone, u"headset_mic"_s}));
        QCOMPARE(find(manager->availableInputDevices(), u"headset_mic"_s)->name,
                 u"Headset microphone"_s);
        QVERIFY(!find(manager->availableInputDevices(), u"headset_mic"_s)->isDefault);

        QVERIFY(m_server->pactl({u"set-default-source"_s, u"headset_mic"_s}));
        QTRY_VERIFY(find(manager->availableInputDevices(), u"headset_mic"_s)->isDefault);
        QVERIFY(!find(manager->availableInputDevices(), virtualMicrophone)->isDefault);

        QVERIFY(m_server->removeModule(*headset));
        QTRY_COMPARE(idsOf(manager->availableInputDevices()), QStringList{virtualMicrophone});
        QTRY_VERIFY(manager->availableInputDevices().constFirst().isDefault);
        QVERIFY(!manager->isLoading());
    }

    void selection_data()
    {
        QTest::addColumn<QString>("selectId");
        QTest::addColumn<bool>("known");
        QTest::newRow("a listed device") << virtualMicrophone << true;
        QTest::newRow("an unknown id") << u"unplugged_mic"_s << false;
    }

    void selection()
    {
        QFETCH(QString, selectId);
        QFETCH(bool, known);
        const QString key = QString::fromLatin1(AudioDeviceManager::selectedDeviceKey);
        {
            const auto manager = discovered();
            QVERIFY(manager);
            QSignalSpy announced(AudioDeviceManager::notifier(),
                                 &AudioDeviceNotifier::audioDeviceChanged);
            QSignalSpy idChanged(manager.get(), &AudioDeviceManager::selectedDeviceIdChanged);
            if (known) {
                QTest::ignoreMessage(
                    QtInfoMsg,
                    "🎤 [AudioDeviceManager] Selected audio device: Quillmoss virtual microphone");
            }
            QCOMPARE(manager->selectDeviceById(selectId), known);
            QCOMPARE(announced.size(), known ? 1 : 0);
            QCOMPARE(idChanged.size(), known ? 1 : 0);
            if (known) {
                QCOMPARE(announced.constFirst().constFirst().value<AudioDevice>().id, selectId);
            }
            QCOMPARE(manager->selectedDeviceId(), known ? selectId : QString());
            QCOMPARE(m_settings->stringValue(key), known ? std::optional(selectId) : std::nullopt);
        }
        // A later launch finds the choice, whether or not the device is there now.
        m_settings->setString(key, selectId);
        const auto manager = discovered();
        QVERIFY(manager);
        QCOMPARE(manager->selectedDeviceId(), selectId);
        QCOMPARE(manager->selectedDevice().has_value(), known);
        if (known) {
            QCOMPARE(manager->selectedDevice()->id, selectId);
        }
    }

    void reportsWhenNoInputIsLeft()
    {
        const auto manager = discovered();
        QVERIFY(manager);
        QTest::ignoreMessage(QtWarningMsg, "❌ [AudioDeviceManager] Failed to discover devices: "
                                           "No audio input devices found");
        QVERIFY(m_server->pactl({u"unload-module"_s, u"module-remap-source"_s}));
        QTRY_COMPARE(manager->lastErrorCode(),
                     AudioDeviceManager::AudioDeviceError::NoInputDevices);
        QVERIFY(manager->availableInputDevices().isEmpty());
        QCOMPARE(manager->lastError(), u"No audio input devices found"_s);

        QVERIFY(m_server->addVirtualSource(virtualMicrophone, u"Back again"_s));
        QTRY_COMPARE(idsOf(manager->availableInputDevices()), QStringList{virtualMicrophone});
        QCOMPARE(manager->lastErrorCode(), AudioDeviceManager::AudioDeviceError::None);
        QCOMPARE(manager->lastError(), QString());
    }

    // Last: takes the server away, then brings a fresh one back.
    void followsTheServerAwayAndBack()
    {
        const auto manager = discovered();
        QVERIFY(manager);
        QVERIFY(!manager->availableInputDevices().isEmpty());
        QTest::ignoreMessage(
            QtWarningMsg,
            QRegularExpression(u"^❌ \\[AudioDeviceManager\\] Failed to discover devices: .+"_s));
        m_server->stop();
        QTRY_COMPARE(manager->lastErrorCode(),
                     AudioDeviceManager::AudioDeviceError::CannotGetDevices);
        QVERIFY(manager->availableInputDevices().isEmpty());
        QVERIFY(!manager->lastError().isEmpty());

        QVERIFY2(m_server->start(), qPrintable(m_server->error()));
        QTRY_COMPARE_WITH_TIMEOUT(idsOf(manager->availableInputDevices()),
                                  QStringList{virtualMicrophone}, 30000);
        QCOMPARE(manager->lastErrorCode(), AudioDeviceManager::AudioDeviceError::None);
        // Listening again: a change after the comeback is seen too.
        const std::optional<int> headset =
            m_server->addVirtualSource(u"headset_mic"_s, u"Headset microphone"_s);
        QVERIFY(headset);
        QTRY_COMPARE(manager->availableInputDevices().size(), 2);
    }
};

QTEST_GUILESS_MAIN(AudioDeviceManagerTest)
#include "AudioDeviceManagerTest.moc"
