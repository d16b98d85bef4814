#pragma once

#include <QFile>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslKey>
#include <QTemporaryDir>

// A certificate for 127.0.0.1 that signs itself, made by the openssl command.
class Certificate final {
    Q_DISABLE_COPY_MOVE(Certificate)

public:
    Certificate()
    {
        const QTemporaryDir directory;
        QProcess openssl;
        openssl.setWorkingDirectory(directory.path());
        openssl.start(
            QStringLiteral("openssl"),
            QStringLiteral("req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=test "
                           "-addext subjectAltName=IP:127.0.0.1 -keyout key -out certificate")
                .split(QLatin1Char(' ')));
        QFile key(directory.filePath(QStringLiteral("key")));
        if (openssl.waitForFinished() && key.open(QIODevice::ReadOnly)) {
            chain = QSslCertificate::fromPath(directory.filePath(QStringLiteral("certificate")));
            server.setPrivateKey(QSslKey(&key, QSsl::Rsa));
            server.setLocalCertificateChain(chain);
        }
    }

    ~Certificate()
    {
        QSslConfiguration::setDefaultConfiguration(before);
    }

    // From now on, and as long as the object lives, every client of this process trusts it.
    void trust() const
    {
        QSslConfiguration trusting = before;
        trusting.addCaCertificates(chain);
        QSslConfiguration::setDefaultConfiguration(trusting);
    }

    const QSslConfiguration before = QSslConfiguration::defaultConfiguration();
    QSslConfiguration server = before; // for the server that shows it
    QList<QSslCertificate> chain; // empty: the openssl command is needed
};
