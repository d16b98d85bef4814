#pragma once

#include <QSslCertificate>
#include <QSslConfiguration>

// A certificate for 127.0.0.1 that signs itself, made by the openssl command.
class Certificate final {
    Q_DISABLE_COPY_MOVE(Certificate)

public:
    Certificate();
    ~Certificate();

    // From now on, and as long as the object lives, every client of this process trusts it.
    void trust() const;

    const QSslConfiguration before = QSslConfiguration::defaultConfiguration();
    QSslConfiguration server = before; // for the server that shows it
    QList<QSslCertificate> chain; // empty: the openssl command is needed
};
