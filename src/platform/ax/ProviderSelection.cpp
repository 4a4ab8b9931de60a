#include "ProviderSelection_p.h"

#include "UnavailableProvider.h"
#include "atspi/AtspiProvider.h"
#include "virtual/VirtualDesktop.h"

#include <QDebug>
#include <QString>

std::shared_ptr<AccessibilityProvider> createProviderFromEnvironment() {
    const QString choice = qEnvironmentVariable("UIET_ACCESSIBILITY");
    const QString virtualPrefix = QStringLiteral("virtual:");
    if (choice.startsWith(virtualPrefix) && choice.size() > virtualPrefix.size()) {
        auto desktop = std::make_shared<VirtualDesktop>();
        desktop->watchFile(choice.mid(virtualPrefix.size()));
        return desktop;
    }
    if (!choice.isEmpty() && choice != QLatin1String("atspi")) {
        qWarning().noquote() << "Error: UIET_ACCESSIBILITY must be \"atspi\" or \"virtual:<path>\", not:"
                             << choice;
        return std::make_shared<UnavailableProvider>();
    }
    // The live desktop is the default.
    QString problem;
    if (auto live = AtspiProvider::create(&problem))
        return live;
    qDebug().noquote()
        << QStringLiteral("Note: the live desktop (AT-SPI2) cannot be reached: %1; every accessibility query fails")
               .arg(problem);
    return std::make_shared<UnavailableProvider>();
}
