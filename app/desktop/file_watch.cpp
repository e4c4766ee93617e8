#include "app/desktop/file_watch.h"

#include <QFileInfo>
#include <QStringList>

namespace holdenmere::desktop {

FileWatch::FileWatch(std::vector<std::filesystem::path> files, QObject* parent)
    : QObject(parent), files_(std::move(files)) {
    settle_.setSingleShot(true);
    settle_.setInterval(kSettleMilliseconds);
    connect(&watcher_, &QFileSystemWatcher::fileChanged, &settle_, qOverload<>(&QTimer::start));
    connect(&watcher_, &QFileSystemWatcher::directoryChanged, &settle_, qOverload<>(&QTimer::start));
    connect(&settle_, &QTimer::timeout, this, [this] {
        rewatch();
        emit changed();
    });
    rewatch();
}

void FileWatch::rewatch() {
    // A replaced file drops out of the watch; add whatever exists now. A
    // folder that does not exist yet is watched from its nearest parent.
    QStringList wanted;
    for (const std::filesystem::path& file : files_) {
        const QString path = QString::fromStdString(file.string());
        if (QFileInfo::exists(path)) wanted << path;
        std::filesystem::path folder = file.parent_path();
        while (!folder.empty() && !QFileInfo::exists(QString::fromStdString(folder.string())) &&
               folder != folder.parent_path()) {
            folder = folder.parent_path();
        }
        if (!folder.empty()) wanted << QString::fromStdString(folder.string());
    }
    wanted.removeDuplicates();
    const QStringList watched = watcher_.files() + watcher_.directories();
    QStringList missing;
    for (const QString& path : wanted) {
        if (!watched.contains(path)) missing << path;
    }
    if (!missing.isEmpty()) watcher_.addPaths(missing);
}

}  // namespace holdenmere::desktop
