#include "widgets/AboutPanel.h"

#include "Identity.h"

#include <QFrame>
#include <QLabel>
#include <QVBoxLayout>

QFrame *newAboutPanel(QWidget *parent)
{
    auto *panel = new QFrame(parent, Qt::SplashScreen | Qt::FramelessWindowHint);
    panel->setObjectName(QStringLiteral("aboutPanel"));
    panel->setFixedSize(300, 300);

    auto *name = new QLabel(Identity::application(), panel);
    auto *version = new QLabel(QStringLiteral("v%1.%2.%3")
                                   .arg(Identity::versionMajor)
                                   .arg(Identity::versionMinor)
                                   .arg(Identity::versionBuild),
                               panel);
    auto *web = new QLabel(Identity::webDomain(), panel);
    auto *icon = new QLabel(panel);
    icon->setPixmap(QPixmap(QStringLiteral(":/img/NodePatch_Icon_128x128.png")));

    auto *layout = new QVBoxLayout(panel);
    layout->setContentsMargins(16, 16, 16, 16);
    layout->setSpacing(12);
    layout->setAlignment(Qt::AlignBottom | Qt::AlignHCenter);
    layout->addWidget(icon);
    layout->addStretch();
    layout->addWidget(name);
    layout->addWidget(version);
    layout->addWidget(web);
    return panel;
}
