#pragma once

#include "Kelvadrome/model/AppModel.h"
#include "Kelvadrome/model/DeliverService.h"
#include "Kelvadrome/model/RelayConnector.h"
#include "Kelvadrome/model/SettingsRows.h"
#include "Kelvadrome/model/VoiceModel.h"
#include "Kelvadrome/platform/linux/core/FileDefaults.h"
#include "Kelvadrome/platform/linux/core/SecretServiceStore.h"
#include "Kelvadrome/platform/linux/session/LogindLock.h"
#include "KelvadromeKit/page/MintLogin.h"
#include "KelvadromeKit/page/PeerCheck.h"

#include <memory>
#include <string>
#include <vector>

namespace kelvadrome {

class DeliveryRunners;

/// What every front end of this machine is built on, in the order in which it is made: settings, the daemon's
/// place and client, the page session, the delivery and the supervisor. A front end adds its windows and
/// makes the model. Main executor; outlives the model.
class LocalHub {
public:
    /// `pool` outlives the hub. `alert` shows a critical message once the front end stands.
    LocalHub(const std::vector<std::string>& arguments, Executor executor, BackgroundPool& pool,
        CriticalAlert alert, std::shared_ptr<RunningApps> apps);

    /// The model's dependencies but for `web`, `screen` and `notifier`.
    AppModel::Dependencies modelDependencies() const;
    /// What voice needs, but for what hears, sends and opens: `http`, `audio`, `speech`, `opener`, `modes`.
    VoiceModel::Dependencies voiceDependencies() const;
    /// What the settings tell of this machine; `windowsObey` is the display's to say.
    SettingsFacts::Place settingsPlace(bool windowsObey) const;

    /// The command that lifts a mask from the background service.
    static std::string allowLoginItem();

    const Executor executor;
    BackgroundPool& pool;
    const std::shared_ptr<Clock> clock = std::make_shared<SystemClock>();
    const LogindLock lock;
    const EnvironmentMap environment;
    const std::shared_ptr<FileDefaults> defaults;
    const DebugFlags flags;
    const DaemonEnvironment env;
    const DaemonClient client;
    const std::shared_ptr<PeerCheck> peers;
    const std::shared_ptr<MachineSecretStore> pageKey;
    const PageSession::Mint mint;
    const std::shared_ptr<PageSession> session;
    const std::shared_ptr<AutomationPrompter> automation;
    const std::shared_ptr<DeliveryRunners> runners;
    const std::shared_ptr<DeliverService> deliver;
    const std::shared_ptr<RelayConnector> connector;
};

} // namespace kelvadrome
