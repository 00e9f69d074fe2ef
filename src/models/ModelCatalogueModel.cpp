#include "models/ModelCatalogueModel.h"

#include "models/ModelDownloader.h"

#include <QFileInfo>
#include <QHash>

#include <cmath>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 kib = 1024;
constexpr qint64 mib = 1024 * kib;
constexpr qint64 gib = 1024 * mib;

} // namespace

ModelCatalogueModel::ModelCatalogueModel(ModelDownloader& downloader, QObject* parent)
    : QAbstractListModel(parent), m_downloader(downloader)
{
    for (const ModelDownloader::CatalogueEntry& entry : ModelDownloader::catalogue()) {
        m_rows.append(Row{entry.name, entry.fileName, std::nullopt});
    }
    refreshFiles();
    m_downloadingRowName = m_downloader.downloadingModel();

    connect(&m_downloader, &ModelDownloader::downloadedModelsChanged, this,
            &ModelCatalogueModel::refreshFiles);
    connect(&m_downloader, &ModelDownloader::downloadingModelChanged, this,
            &ModelCatalogueModel::downloadingModelChanged);
    connect(&m_downloader, &ModelDownloader::isDownloadingChanged, this,
            &ModelCatalogueModel::downloadingModelChanged);
    connect(&m_downloader, &ModelDownloader::downloadProgressChanged, this,
            &ModelCatalogueModel::progressChanged);
    connect(&m_downloader, &ModelDownloader::downloadFinished, this,
            &ModelCatalogueModel::downloadFinished);
}

int ModelCatalogueModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(m_rows.size());
}

QVariant ModelCatalogueModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const Row& row = m_rows.at(index.row());
    const bool downloading =
        m_downloader.isDownloading() && m_downloader.downloadingModel() == row.name;
    switch (role) {
    case Qt::DisplayRole:
    case NameRole:
        return row.name;
    case FileNameRole:
        return row.fileName;
    case SizeTextRole:
        if (row.fileSize) {
            return sizeText(*row.fileSize);
        }
        if (const std::optional<qint64> size = approximateDownloadSize(row.name)) {
            return u"about "_s + sizeText(*size);
        }
        return QString();
    case DownloadedRole:
        return row.fileSize.has_value();
    case DownloadingRole:
        return downloading;
    case ProgressRole:
        if (downloading) {
            return m_downloader.downloadProgress();
        }
        return row.fileSize ? 1.0 : 0.0;
    default:
        return {};
    }
}

QHash<int, QByteArray> ModelCatalogueModel::roleNames() const
{
    return {
        {NameRole, "name"},
        {FileNameRole, "fileName"},
        {SizeTextRole, "sizeText"},
        {DownloadedRole, "downloaded"},
        {DownloadingRole, "downloading"},
        {ProgressRole, "progress"},
    };
}

std::optional<qint64> ModelCatalogueModel::approximateDownloadSize(const QString& name)
{
    for (const ModelDownloader::CatalogueEntry& entry : ModelDownloader::catalogue()) {
        if (entry.name == name)
            return entry.approximateMiB * mib;
    }
    return std::nullopt;
}

QString ModelCatalogueModel::sizeText(qint64 bytes)
{
    const auto in = [bytes](qint64 unit) {
        return static_cast<double>(bytes) / static_cast<double>(unit);
    };
    // Each unit is checked on the rounded figure, so that 1023.7 KB reads as
    // "1.0 MB" rather than "1024 KB".
    if (bytes < kib) {
        return bytes == 1 ? u"1 byte"_s : u"%1 bytes"_s.arg(std::max<qint64>(bytes, 0));
    }
    if (std::llround(in(kib)) < 1024) {
        return u"%1 KB"_s.arg(std::llround(in(kib)));
    }
    if (in(mib) < 9.95) {
        return u"%1 MB"_s.arg(in(mib), 0, 'f', 1);
    }
    if (std::llround(in(mib)) < 1024) {
        return u"%1 MB"_s.arg(std::llround(in(mib)));
    }
    return u"%1 GB"_s.arg(in(gib), 0, 'f', 1);
}

void ModelCatalogueModel::download(const QString& name)
{
    clearError();
    if (m_cancelledName == name) {
        m_cancelledName.clear();
    }
    // The outcome arrives through downloadFinished, refusals included.
    m_downloader.download(name);
}

void ModelCatalogueModel::cancel()
{
    if (!m_downloader.isDownloading()) {
        return;
    }
    m_cancelledName = m_downloader.downloadingModel();
    m_downloader.cancelDownload();
}

bool ModelCatalogueModel::remove(const QString& name)
{
    clearError();
    if (!ModelDownloader::isKnownModel(name)) {
        setLastError(ModelDownloader::unknownModelError(name));
        return false;
    }
    if (!m_downloader.deleteModel(name)) {
        setLastError(u"%1 could not be deleted: Quillmoss cannot remove %2"_s.arg(
            name, m_downloader.modelPath(name)));
        // The file may be half there or gone after all; show what is on disk.
        refreshFiles();
        return false;
    }
    // deleteModel announces a removed file; a file that was already gone is
    // not announced, so read the disk either way.
    refreshFiles();
    return true;
}

void ModelCatalogueModel::clearError()
{
    setLastError({});
}

int ModelCatalogueModel::rowOf(const QString& name) const
{
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        if (m_rows.at(i).name == name) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

void ModelCatalogueModel::refreshFiles()
{
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        Row& row = m_rows[i];
        const QFileInfo file(m_downloader.modelPath(row.name));
        const std::optional<qint64> size =
            file.isFile() ? std::optional<qint64>(file.size()) : std::nullopt;
        if (size != row.fileSize) {
            row.fileSize = size;
            const QModelIndex changed = index(static_cast<int>(i));
            Q_EMIT dataChanged(changed, changed, {SizeTextRole, DownloadedRole, ProgressRole});
        }
    }
}

void ModelCatalogueModel::downloadingModelChanged()
{
    const QString now = m_downloader.isDownloading() ? m_downloader.downloadingModel() : QString();
    if (now == m_downloadingRowName) {
        return;
    }
    for (const QString& name : {m_downloadingRowName, now}) {
        if (const int row = rowOf(name); row >= 0) {
            Q_EMIT dataChanged(index(row), index(row), {DownloadingRole, ProgressRole});
        }
    }
    m_downloadingRowName = now;
}

void ModelCatalogueModel::progressChanged()
{
    if (const int row = rowOf(m_downloadingRowName); row >= 0) {
        Q_EMIT dataChanged(index(row), index(row), {ProgressRole});
    }
}

void ModelCatalogueModel::downloadFinished(const QString& name, bool ok, const QString& error)
{
    const bool cancelledByUser = name == m_cancelledName;
    if (cancelledByUser) {
        m_cancelledName.clear();
    }
    if (!ok && !cancelledByUser) {
        setLastError(error);
    }
    refreshFiles();
}

void ModelCatalogueModel::setLastError(const QString& error)
{
    if (m_lastError != error) {
        m_lastError = error;
        Q_EMIT lastErrorChanged();
    }
}
