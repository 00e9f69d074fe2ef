// quillmoss models: the speech models on this machine, and fetching them from the model host.
#include "cli/Cli.h"
#include "core/InterruptWatcher.h"
#include "models/ModelDownloader.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

const auto usage =
    u"models list              every model, with its size on disk or \"not downloaded\"\n"
    u"models path NAME         where the model's file is kept (whether or not it is there)\n"
    u"models download NAME     fetch the model, replacing its file; Ctrl-C cancels\n"
    u"models delete NAME       remove the model's file\n"
    u"models ensure NAME       fetch the model unless its file is there\n"_s;

constexpr int barWidth = 30;

QString humanSize(qint64 bytes)
{
    return QLocale::c().formattedDataSize(bytes, 1, QLocale::DataSizeIecFormat);
}

// Progress on standard error, which keeps standard output for the result (the
// model's path), so `$(quillmoss models ensure small.en)` works in a script.
// A terminal gets one bar redrawn in place; a pipe or file gets a line at
// every tenth, so logs stay short.
class ProgressPrinter
{
public:
    ProgressPrinter(CliContext& context, QString name)
        : m_context(context), m_name(std::move(name)), m_terminal(isatty(STDERR_FILENO) != 0)
    {}

    void show(double progress)
    {
        const int percent = static_cast<int>(progress * 100.0);
        if (m_terminal) {
            if (percent == m_shownPercent) {
                return;
            }
            m_shownPercent = percent;
            const int filled = percent * barWidth / 100;
            m_context.err << u"\rdownloading %1 [%2%3] %4%"_s.arg(
                                 m_name, QString(filled, u'#'), QString(barWidth - filled, u'.'),
                                 QString::number(percent).rightJustified(3))
                          << Qt::flush;
            return;
        }
        const int tenth = percent / 10;
        if (tenth <= m_shownTenth) {
            return;
        }
        m_shownTenth = tenth;
        m_context.err << u"downloading %1: %2%"_s.arg(m_name).arg(percent) << Qt::endl;
    }

    void start() { show(0.0); }

    // Ends the redrawn line so what follows starts on its own.
    void finish()
    {
        if (m_terminal && m_shownPercent >= 0) {
            m_context.err << Qt::endl;
        }
    }

private:
    CliContext& m_context;
    QString m_name;
    bool m_terminal;
    int m_shownPercent = -1;
    int m_shownTenth = -1;
};

ModelDownloadResult await(const QFuture<ModelDownloadResult>& future)
{
    QFutureWatcher<ModelDownloadResult> watcher;
    QEventLoop loop;
    QObject::connect(&watcher, &QFutureWatcherBase::finished, &loop, &QEventLoop::quit);
    watcher.setFuture(future);
    if (!future.isFinished()) {
        loop.exec();
    }
    return future.result();
}

int printModel(CliContext& context, const ModelDownloader& downloader, const QString& name)
{
    const QString path = downloader.modelPath(name);
    if (context.json) {
        context.out << QJsonDocument(QJsonObject{{u"name"_s, name},
                                                 {u"path"_s, path},
                                                 {u"size"_s, QFileInfo(path).size()}})
                           .toJson(QJsonDocument::Compact)
                    << Qt::endl;
    } else {
        context.out << path << Qt::endl;
    }
    return ExitDone;
}

int list(CliContext& context, const ModelDownloader& downloader)
{
    const QStringList names = ModelDownloader::modelNames();
    if (context.json) {
        QJsonArray array;
        for (const QString& name : names) {
            const QString path = downloader.modelPath(name);
            QJsonObject model{{u"name"_s, name},
                              {u"path"_s, path},
                              {u"url"_s, downloader.downloadUrl(name).toString()},
                              {u"default"_s, name == ModelDownloader::defaultModel()},
                              {u"downloaded"_s, downloader.isDownloaded(name)}};
            if (downloader.isDownloaded(name)) {
                model.insert(u"size"_s, QFileInfo(path).size());
            }
            array.append(model);
        }
        context.out << QJsonDocument(array).toJson(QJsonDocument::Compact) << Qt::endl;
        return ExitDone;
    }
    qsizetype width = 0;
    for (const QString& name : names) {
        width = std::max(width, name.size());
    }
    for (const QString& name : names) {
        const QString state = downloader.isDownloaded(name)
                                  ? humanSize(QFileInfo(downloader.modelPath(name)).size())
                                  : u"not downloaded"_s;
        context.out << name.leftJustified(width) << u"  "_s << state;
        if (name == ModelDownloader::defaultModel()) {
            context.out << u"  (default)"_s;
        }
        context.out << u'\n';
    }
    context.out.flush();
    return ExitDone;
}

// download and ensure: the transfer with its progress; Ctrl-C or SIGTERM
// cancels it, which removes the partial file.
int fetch(CliContext& context, ModelDownloader& downloader, const QString& name, bool always)
{
    if (!always && downloader.isDownloaded(name)) {
        return printModel(context, downloader, name);
    }
    ProgressPrinter progress(context, name);
    QObject::connect(&downloader, &ModelDownloader::downloadProgressChanged, &downloader,
                     [&] { progress.show(downloader.downloadProgress()); });
    const InterruptWatcher interrupts;
    QObject::connect(&interrupts, &InterruptWatcher::interrupted, &downloader,
                     &ModelDownloader::cancelDownload);
    progress.start();
    const ModelDownloadResult result =
        await(always ? downloader.download(name) : downloader.ensureModel(name));
    progress.finish();
    if (!result.ok) {
        return context.fail(result.error);
    }
    return printModel(context, downloader, name);
}

int run(CliContext& context, const QStringList& arguments)
{
    const QString verb = arguments.value(0);
    const qsizetype count = arguments.size();
    ModelDownloader downloader(context.modelBaseUrl);
    if (verb == u"list"_s && count == 1) {
        return list(context, downloader);
    }
    const QStringList verbsWithName = {u"path"_s, u"download"_s, u"delete"_s, u"ensure"_s};
    if (!verbsWithName.contains(verb) || count != 2) {
        return context.usageError(verb.isEmpty() ? u"models needs a verb"_s
                                                 : u"wrong use of models %1"_s.arg(verb),
                                  usage);
    }
    const QString& name = arguments.at(1);
    if (!ModelDownloader::isKnownModel(name)) {
        return context.fail(ModelDownloader::unknownModelError(name));
    }
    if (verb == u"path"_s) {
        context.out << downloader.modelPath(name) << Qt::endl;
        return ExitDone;
    }
    if (verb == u"delete"_s) {
        return downloader.deleteModel(name)
                   ? ExitDone
                   : context.fail(u"could not delete %1"_s.arg(downloader.modelPath(name)));
    }
    return fetch(context, downloader, name, verb == u"download"_s);
}

} // namespace

Subcommand modelsSubcommand()
{
    return {u"models"_s, u"List, fetch and remove the speech models."_s, usage, run};
}
