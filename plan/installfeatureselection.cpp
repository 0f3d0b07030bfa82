#include "plan/installfeatureselection.h"

#include "core/hexception.h"
#include "plan/installconfigurationlist.h"

#include <algorithm>
#include <utility>

void InstallFeatureSelection::apply(
    InstallConfigurationList *list, const QList<InstallCommandLine::FeatureSwitch> &switches)
{
    // The rows of the custom setup page, in its order.
    QList<InstallConfigurationItem *> features;
    list->visit<int>(0, [&features](int, InstallConfigurationItem *item) {
        features.append(item);
        return 0;
    });
    auto titles = [&](bool switchableOnly) {
        QStringList names;
        for (const InstallConfigurationItem *feature : std::as_const(features)) {
            if (!switchableOnly || feature->parentItem() != list)
                names.append(QLatin1Char('\'') + feature->title() + QLatin1Char('\''));
        }
        return names.join(QStringLiteral(", "));
    };

    // Every title is checked before anything is switched.
    QList<std::pair<InstallConfigurationItem *, bool>> chosen;
    for (const InstallCommandLine::FeatureSwitch &feature : switches) {
        const auto found
            = std::find_if(features.cbegin(), features.cend(), [&](InstallConfigurationItem *item) {
                  return item->title().compare(feature.title, Qt::CaseInsensitive) == 0;
              });
        if (found == features.cend())
            throw HException(QStringLiteral("Unknown feature '") + feature.title
                + QStringLiteral("'; the features are ") + titles(false));
        if (!feature.on && (*found)->parentItem() == list)
            throw HException(QStringLiteral("The feature '") + (*found)->title()
                + QStringLiteral("' cannot be switched off; the features that can are ") + titles(true));
        chosen.append({ *found, feature.on });
    }

    for (const auto &[item, on] : std::as_const(chosen)) {
        if (!on) {
            item->setInstall(false);
            continue;
        }
        item->setInstall(true);
        for (InstallConfigurationItem *holder = item->parentItem(); holder; holder = holder->parentItem())
            holder->setInstall(true);
    }
}
