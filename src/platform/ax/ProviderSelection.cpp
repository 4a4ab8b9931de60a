#include "ProviderSelection_p.h"

#include "UnavailableProvider.h"
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
    // The live desktop is the default on Linux, and it is not built yet.
    qDebug().noquote() << "Note: the live desktop provider (AT-SPI2) is not available in this build;"
                          " every accessibility query fails";
    return std::make_shared<UnavailableProvider>();
}
