// Starts the built app as a user would, under a virtual X server, with the
// built-in sample fixture, and has it save a picture of every page, of the
// consent sheet and of every welcome step.
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <set>

class DesktopEndToEndTest : public QObject {
    Q_OBJECT

private:
    static QProcessEnvironment environment(const QString& home) {
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("HOME"), home);
        environment.insert(QStringLiteral("PATH"), QStringLiteral("/usr/bin:/bin"));
        environment.insert(QStringLiteral("TZ"), QStringLiteral("UTC"));
        environment.insert(QStringLiteral("LANG"), QStringLiteral("C.UTF-8"));
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), home);
        // A sanitizer build passes its settings (the suppressions) on.
        const QProcessEnvironment own = QProcessEnvironment::systemEnvironment();
        for (const QString& name : {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("LSAN_OPTIONS"),
                                    QStringLiteral("UBSAN_OPTIONS")}) {
            if (own.contains(name)) environment.insert(name, own.value(name));
        }
        return environment;
    }

    // How many different colours a sample of the picture has: a blank or
    // broken grab has one or two.
    static int colours(const QImage& image) {
        std::set<QRgb> seen;
        for (int y = 0; y < image.height(); y += 7) {
            for (int x = 0; x < image.width(); x += 7) seen.insert(image.pixel(x, y));
        }
        return static_cast<int>(seen.size());
    }

private slots:
    void screenshotsOfEveryPage() {
        const QString xvfb = QStandardPaths::findExecutable(QStringLiteral("xvfb-run"));
        if (xvfb.isEmpty()) QSKIP("xvfb-run is not installed (Debian package xvfb): no screenshots taken");

        QTemporaryDir home;
        const QString output = QStringLiteral(HOLDENMERE_TEST_OUTPUT_DIR "/screenshots");
        QDir(output).removeRecursively();
        QProcess process;
        QProcessEnvironment env = environment(home.path());
        env.insert(QStringLiteral("HOLDENMERE_UI_FIXTURE"), QStringLiteral("sample"));
        env.insert(QStringLiteral("HOLDENMERE_UI_SCREENSHOTS"), output);
        process.setProcessEnvironment(env);
        process.start(xvfb, {QStringLiteral("-a"), QStringLiteral("-s"), QStringLiteral("-screen 0 1280x1024x24"),
                             QStringLiteral(HOLDENMERE_EXECUTABLE)});
        QVERIFY(process.waitForFinished(120000));
        QVERIFY2(process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0,
                 qPrintable(QString::fromUtf8(process.readAllStandardError())));

        const QStringList pages{QStringLiteral("managed-apps"), QStringLiteral("add-apps"),
                                QStringLiteral("startup-items"), QStringLiteral("activity"), QStringLiteral("settings")};
        for (const QString& page : pages) {
            QImage image(output + QLatin1Char('/') + page + QStringLiteral(".png"));
            QVERIFY2(!image.isNull(), qPrintable(page));
            QCOMPARE(image.size(), QSize(920, 640));
            QVERIFY2(colours(image) > 20, qPrintable(page));
        }
        for (const QString& step : {QStringLiteral("welcome"), QStringLiteral("welcome-apps"),
                                    QStringLiteral("welcome-start-at-login"), QStringLiteral("welcome-startup-consent"),
                                    QStringLiteral("startup-consent")}) {
            QImage image(output + QLatin1Char('/') + step + QStringLiteral(".png"));
            QVERIFY2(!image.isNull(), qPrintable(step));
            QCOMPARE(image.size(), QSize(620, 500));
            QVERIFY2(colours(image) > 10, qPrintable(step));
        }
        // The fixture ran in its own folder: the home folder was not written.
        QVERIFY(!QFileInfo::exists(home.path() + QStringLiteral("/Library/Application Support/Holdenmere")));
    }

    void anUnreadableFixtureEndsTheAppWithAMessage() {
        QTemporaryDir home;
        QProcess process;
        QProcessEnvironment env = environment(home.path());
        env.insert(QStringLiteral("HOLDENMERE_UI_FIXTURE"), home.path() + QStringLiteral("/nowhere.json"));
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        process.setProcessEnvironment(env);
        process.start(QStringLiteral(HOLDENMERE_EXECUTABLE), {});
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 1);
        QVERIFY(QString::fromUtf8(process.readAllStandardError()).contains(QStringLiteral("cannot open UI fixture")));
    }

    void anInstanceOpenedAtLoginIsTheDesktopApp() {
        // "--opened-at-login" is no unknown option: the desktop app starts
        // (here in screenshot mode, on the offscreen platform, and ends).
        QTemporaryDir home;
        QTemporaryDir pictures;
        QProcess process;
        QProcessEnvironment env = environment(home.path());
        env.insert(QStringLiteral("HOLDENMERE_UI_FIXTURE"), QStringLiteral("sample"));
        env.insert(QStringLiteral("HOLDENMERE_UI_SCREENSHOTS"), pictures.path());
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("offscreen"));
        process.setProcessEnvironment(env);
        process.start(QStringLiteral(HOLDENMERE_EXECUTABLE), {QStringLiteral("--opened-at-login")});
        QVERIFY(process.waitForFinished(60000));
        QCOMPARE(process.exitCode(), 0);
        QVERIFY(QFileInfo::exists(pictures.path() + QStringLiteral("/managed-apps.png")));
    }
};

QTEST_GUILESS_MAIN(DesktopEndToEndTest)
#include "desktop_e2e_qtest.moc"
