#include <QBuffer>
#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>

#include "app/desktop/app_icons.h"

using namespace holdenmere::desktop;

namespace {

QImage filled(const QColor& colour, int size = 128) {
    QImage image(size, size, QImage::Format_ARGB32);
    image.fill(colour);
    return image;
}

QByteArray png(const QImage& image) {
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    image.save(&buffer, "PNG");
    return bytes;
}

// An .icns file as macOS app bundles ship them: one 128x128 PNG element.
QByteArray icns(const QImage& image) {
    const QByteArray data = png(image);
    QByteArray element("ic07");
    quint32 length = qToBigEndian<quint32>(static_cast<quint32>(8 + data.size()));
    element.append(reinterpret_cast<const char*>(&length), 4);
    element.append(data);
    QByteArray file("icns");
    quint32 total = qToBigEndian<quint32>(static_cast<quint32>(8 + element.size()));
    file.append(reinterpret_cast<const char*>(&total), 4);
    file.append(element);
    return file;
}

QColor centre(const QIcon& icon) {
    const QImage image = icon.pixmap(64, 64).toImage();
    return image.pixelColor(image.width() / 2, image.height() / 2);
}

void write(const QString& path, const QByteArray& bytes) {
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(bytes);
}

}  // namespace

class AppIconsTest : public QObject {
    Q_OBJECT

private slots:
    void aReadableIcnsIsTheAppsIcon() {
        if (!QImageReader::supportedImageFormats().contains("icns")) {
            QSKIP("Qt's icns image format plugin is not installed (qt6-image-formats-plugins)");
        }
        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("AppIcon.icns"));
        write(path, icns(filled(QColor(10, 200, 30))));
        const QIcon icon = icons::forApp(path.toStdString(), QStringLiteral("Green"), QStringLiteral("com.example.green"));
        QCOMPARE(centre(icon), QColor(10, 200, 30));
    }

    void anUnreadableIconFileFallsBackToATile() {
        QTemporaryDir folder;
        const QString path = folder.filePath(QStringLiteral("Broken.icns"));
        write(path, QByteArray("icns\0\0\0\x10garbage!", 16));
        const QIcon fallback = icons::forApp(path.toStdString(), QStringLiteral("Broken"), QStringLiteral("b"));
        const QIcon tile = icons::forApp(std::nullopt, QStringLiteral("Broken"), QStringLiteral("b"));
        QVERIFY(!fallback.isNull());
        QCOMPARE(fallback.pixmap(32, 32).toImage(), tile.pixmap(32, 32).toImage());
    }

    void tilesAreStablePerAppAndDimmedWhenMissing() {
        const QImage first = icons::letterTile(QStringLiteral("Driftmail"), QStringLiteral("com.example.d"), 32).toImage();
        const QImage again = icons::letterTile(QStringLiteral("Driftmail"), QStringLiteral("com.example.d"), 32).toImage();
        QCOMPARE(first, again);
        const QImage dimmed =
            icons::letterTile(QStringLiteral("Driftmail"), QStringLiteral("com.example.d"), 32, true).toImage();
        QVERIFY(first != dimmed);
        const QColor grey = dimmed.pixelColor(4, 16);
        QCOMPARE(grey.red(), grey.green());
        QVERIFY(!icons::holdenmere().isNull());
        QVERIFY(!icons::menuBar().isNull());
    }
};

QTEST_MAIN(AppIconsTest)
#include "app_icons_qtest.moc"
