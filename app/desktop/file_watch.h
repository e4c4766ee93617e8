#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

#include <filesystem>
#include <vector>

namespace holdenmere::desktop {

// Tells when any of a few files may have changed: the login pass and the
// command-line modes write config.json and history.json while the window is
// open. The folders are watched as well as the files, because an atomic save
// replaces the file (a new inode) and a file that does not exist yet cannot
// be watched. Bursts of events are folded into one `changed` signal.
class FileWatch : public QObject {
    Q_OBJECT

public:
    static constexpr int kSettleMilliseconds = 150;

    explicit FileWatch(std::vector<std::filesystem::path> files, QObject* parent = nullptr);

signals:
    void changed();

private:
    void rewatch();

    std::vector<std::filesystem::path> files_;
    QFileSystemWatcher watcher_;
    QTimer settle_;
};

}  // namespace holdenmere::desktop
