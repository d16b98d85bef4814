#include "support/Certificate.h"

#include <QFile>
#include <QProcess>
#include <QSslKey>
#include <QTemporaryDir>

Certificate::Certificate()
{
    const QTemporaryDir directory;
    QProcess openssl;
    openssl.setWorkingDirectory(directory.path());
    openssl.start(QStringLiteral("openssl"),
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

Certificate::~Certificate()
{
    QSslConfiguration::setDefaultConfiguration(before);
}

void Certificate::trust() const
{
    QSslConfiguration trusting = before;
    trusting.addCaCertificates(chain);
    QSslConfiguration::setDefaultConfiguration(trusting);
}
