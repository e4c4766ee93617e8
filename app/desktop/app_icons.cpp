#include "app/desktop/app_icons.h"

#include <QColor>
#include <QFont>
#include <QHash>
#include <QImageReader>
#include <QPainter>
#include <QPainterPath>

#include <cstdint>

namespace holdenmere::desktop::icons {
namespace {

QColor tileColour(const QString& seed) {
    // A stable hue per app, so that an app keeps its colour between runs
    // (qHash is seeded per process): FNV-1a over the UTF-8 bytes.
    std::uint32_t hash = 2166136261u;
    for (char byte : seed.toUtf8()) {
        hash ^= static_cast<unsigned char>(byte);
        hash *= 16777619u;
    }
    return QColor::fromHsv(static_cast<int>(hash % 360u), 120, 200);
}

QPixmap drawHoldenmere(int size, bool monochrome) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    const qreal s = size;
    const QColor ink = monochrome ? QColor(30, 30, 30) : QColor(255, 255, 255);
    if (!monochrome) {
        QLinearGradient background(0, 0, 0, s);
        background.setColorAt(0, QColor(64, 132, 214));
        background.setColorAt(1, QColor(28, 84, 160));
        QPainterPath tile;
        tile.addRoundedRect(QRectF(s * 0.04, s * 0.04, s * 0.92, s * 0.92), s * 0.2, s * 0.2);
        painter.fillPath(tile, background);
    }
    QPen pen(ink, s * 0.07, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    // The signal arcs above the gate.
    for (int ring = 0; ring < 2; ++ring) {
        const qreal radius = s * (0.16 + 0.12 * ring);
        const QRectF arc(s * 0.5 - radius, s * 0.36 - radius, radius * 2, radius * 2);
        painter.drawArc(arc, 45 * 16, 90 * 16);
    }
    // The gate: two posts and a bar.
    painter.drawLine(QPointF(s * 0.3, s * 0.52), QPointF(s * 0.3, s * 0.82));
    painter.drawLine(QPointF(s * 0.7, s * 0.52), QPointF(s * 0.7, s * 0.82));
    painter.drawLine(QPointF(s * 0.3, s * 0.62), QPointF(s * 0.7, s * 0.62));
    return pixmap;
}

}  // namespace

QPixmap letterTile(const QString& name, const QString& seed, int size, bool dimmed) {
    QPixmap pixmap(size, size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    QColor colour = dimmed ? QColor(170, 170, 170) : tileColour(seed.isEmpty() ? name : seed);
    QLinearGradient background(0, 0, 0, size);
    background.setColorAt(0, colour.lighter(115));
    background.setColorAt(1, colour.darker(110));
    QPainterPath tile;
    const qreal inset = size * 0.06;
    tile.addRoundedRect(QRectF(inset, inset, size - 2 * inset, size - 2 * inset), size * 0.22, size * 0.22);
    painter.fillPath(tile, background);
    QFont font = painter.font();
    font.setBold(true);
    font.setPixelSize(qMax(6, size * 9 / 20));
    painter.setFont(font);
    painter.setPen(Qt::white);
    const QString initial = name.trimmed().isEmpty() ? QStringLiteral("?") : name.trimmed().left(1).toUpper();
    painter.drawText(QRectF(0, 0, size, size), Qt::AlignCenter, initial);
    return pixmap;
}

QIcon forApp(const std::optional<std::filesystem::path>& iconPath, const QString& name, const QString& seed,
             bool missing) {
    if (iconPath && !missing) {
        static QHash<QString, QIcon> cache;
        const QString path = QString::fromStdString(iconPath->string());
        auto cached = cache.constFind(path);
        if (cached != cache.constEnd()) return *cached;
        QImageReader reader(path);
        QImage image = reader.read();
        if (!image.isNull()) {
            QIcon icon(QPixmap::fromImage(image));
            cache.insert(path, icon);
            return icon;
        }
    }
    QIcon icon;
    for (int size : {16, 32, 64}) icon.addPixmap(letterTile(name, seed, size, missing));
    return icon;
}

QIcon holdenmere() {
    QIcon icon;
    for (int size : {16, 32, 64, 128, 256}) icon.addPixmap(drawHoldenmere(size, false));
    return icon;
}

QIcon menuBar() {
    QIcon icon;
    for (int size : {16, 22, 32, 44}) icon.addPixmap(drawHoldenmere(size, true));
    icon.setIsMask(true);
    return icon;
}

}  // namespace holdenmere::desktop::icons
