#pragma once

#include <QIcon>
#include <QPixmap>
#include <QString>

#include <filesystem>
#include <optional>

// Icons of apps and of Holdenmere itself.
namespace holdenmere::desktop::icons {

// The bundle's own icon file when Qt can read it (.icns through the image
// format plugin, or any other image), else a generic tile with the app's
// initial; a missing bundle gets a dimmed tile.
QIcon forApp(const std::optional<std::filesystem::path>& iconPath, const QString& name, const QString& seed,
             bool missing = false);

// A rounded tile in a colour taken from `seed`, with the name's first letter.
QPixmap letterTile(const QString& name, const QString& seed, int size, bool dimmed = false);

// Holdenmere's own icon: a gate under a signal arc, drawn at any size.
QIcon holdenmere();
// The monochrome menu-bar version.
QIcon menuBar();

}  // namespace holdenmere::desktop::icons
