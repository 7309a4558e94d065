#include "Kelvadrome/hub/LocalHub.h"

#include "Kelvadrome/platform/linux/core/CurlHTTP.h"
#include "Kelvadrome/platform/linux/core/LinuxPeers.h"
#include "Kelvadrome/platform/linux/core/Resources.h"
#include "Kelvadrome/platform/linux/process/DeliveryRunners.h"
#include "Kelvadrome/platform/linux/process/PosixChild.h"
#include "Kelvadrome/platform/linux/session/LaunchctlEffects.h"
#include "Kelvadrome/platform/linux/session/SystemdAgentService.h"
#include "KelvadromeKit/daemon/DaemonLaunchPlan.h"
#include "KelvadromeKit/delivery/SystemHostAccess.h"
#include "KelvadromeKit/page/PageKey.h"

namespace kelvadrome {

namespace {

constexpr double longestDelivery = 8; // seconds that a quit waits for an answer on its way

/// The login item, where this run may manage it: with the standard home and the daemon's files in place.
std::optional<BackgroundService> backgroundService(
    const DaemonEnvironment& env, const EnvironmentMap& environment) {
    if (!env.isStandard() || !env.resources)
        return std::nullopt;
    const auto systemctl = systemSystemctl();
    return BackgroundService{.service = std::make_shared<SystemdAgentService>(systemctl, executablePath(),
                                 SystemdAgentService::standardFolder(environment)),
        .legacy = LegacyLaunchAgent::inHome(Files::userHome()),
        .storageRoot = env.home,
        .effects = BackgroundService::Effects::live(linuxLaunchctl(systemProgram(), systemctl)),
        .build = KELVADROME_VERSION};
}

std::shared_ptr<MachineSecretStore> pageKeyStore(const std::string& home) {
    return std::make_shared<MachineSecretStore>(
        std::string(PageKey::service), PageKey::account(home), std::string(PageKey::label));
}

/// Keys of before were kept under the home's path as it was written.
std::shared_ptr<SecretStore> withFormerKey(
    std::shared_ptr<SecretStore> now, const std::string& named, const std::string& home) {
    if (named == home)
        return now;
    return std::make_shared<MovedSecretStore>(std::move(now), pageKeyStore(named));
}

/// The user's language, as programs on a terminal are told of it.
std::string locale(const EnvironmentMap& environment) {
    for (const auto* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const auto found = environment.find(name);
        if (found != environment.end() && !found->second.empty())
            return found->second;
    }
    return "en_US";
}

SystemHostAccess hostAccess(const LogindLock& lock) {
    return SystemHostAccess(
        {.check = {}, .request = {}, .screenLocked = [&lock] { return lock.screenLocked(); }});
}

} // namespace

LocalHub::LocalHub(const std::vector<std::string>& arguments, Executor on, BackgroundPool& threads,
    CriticalAlert alert, std::shared_ptr<RunningApps> apps)
    : executor(std::move(on)), pool(threads), environment(Files::processEnvironment()),
      defaults(std::make_shared<FileDefaults>(FileDefaults::standardPath(environment), arguments)),
      flags(DebugFlags::current(*defaults)), env(DaemonEnvironment::resolveHome(flags.home, environment),
                                                 flags.port, resourceDirectory(executablePath())),
      client(env.socketPath(), pool), peers(std::make_shared<LinuxPeers>(client.transport)),
      pageKey(pageKeyStore(env.home)),
      mint(mintLogin(client,
          withFormerKey(pageKey, DaemonEnvironment::namedHome(flags.home, environment), env.home), env.home,
          pool, executor, std::move(alert))),
      session(std::make_shared<PageSession>(executor, std::make_shared<CurlHTTP>(pool, peers), mint)),
      automation(std::make_shared<AutomationPrompter>(
          executor, hostAccess(lock).automation(), std::make_shared<DefaultsFlags>(defaults))),
      runners(std::make_shared<DeliveryRunners>(pool, environment, clock)),
      deliver(std::make_shared<DeliverService>(DeliverService::Dependencies{.executor = executor,
          .clock = clock,
          .session = session,
          .runnerFor = [runners = runners](const DeliverJob& job) { return runners->forJob(job); },
          .live = LiveExecutor{.runner = runners->plain(),
              .bins = LiveExecutor::findBins(Files::userHome()),
              .clock = clock,
              .home = Files::userHome()},
          .prompter = automation,
          .probe = hostAccess(lock).probe(),
          .apps = std::move(apps)})),
      connector(RelayConnector::make({.executor = executor,
          .clock = clock,
          .client = client,
          .env = env,
          .environment = environment,
          .launcher = std::make_shared<PosixChildLauncher>()})) {}

AppModel::Dependencies LocalHub::modelDependencies() const {
    return {.executor = executor,
        .pool = &pool,
        .clock = clock,
        .defaults = defaults,
        .flags = flags,
        .env = env,
        .supervisor = std::make_shared<DaemonSupervisor>(env, client,
            DaemonSupervisor::World{executor, &pool, clock, std::make_shared<PosixChildLauncher>(),
                DaemonLaunchPlan::errorLog(Files::userHome())},
            environment),
        .client = client,
        .session = session,
        .background = backgroundService(env, environment),
        .web = nullptr,
        .screen = nullptr,
        .notifier = nullptr,
        .automation = automation,
        .relay = connector,
        .voice = nullptr,
        .startDelivery = [deliver = deliver] { deliver->start(); },
        .finishDelivery = [deliver = deliver] { return deliver->finish(longestDelivery); }};
}

VoiceModel::Dependencies LocalHub::voiceDependencies() const {
    return {.executor = executor,
        .pool = &pool,
        .clock = clock,
        .client = client,
        .secrets = std::make_shared<MachineSecretStore>(
            VoiceModel::openAIService, VoiceModel::openAIAccount, VoiceModel::openAILabel),
        .http = nullptr,
        .audio = nullptr,
        .speech = nullptr,
        .opener = nullptr,
        .modes = nullptr,
        .journal = std::make_shared<DefaultsModeJournal>(defaults),
        .signature = {},
        .locale = locale(environment),
        .home = Files::userHome()};
}

std::string LocalHub::allowLoginItem() {
    return std::string("systemctl --user unmask ") + SystemdAgentService::unitName;
}

SettingsFacts::Place LocalHub::settingsPlace(bool windowsObey) const {
    SettingsFacts::Place place{.dataHome = env.home,
        .socket = env.socketPath(),
        .settingsFile = FileDefaults::standardPath(environment),
        .executable = executablePath(),
        .version = KELVADROME_VERSION,
        .allowLoginItem = allowLoginItem(),
        .ownHome = !env.isStandard(),
        .windowsObey = windowsObey,
        .mayNotify = flags.notifications,
        .loginItem = backgroundService(env, environment).has_value()};
    if (env.resources) {
        if (const auto plan = DaemonLaunchPlan::make(*env.resources, environment, Files::userHome()))
            place.daemonLog = plan->stdoutPath;
    }
    const auto bins = LiveExecutor::findBins(Files::userHome());
    if (const auto tmux = bins.find("tmux"); tmux != bins.end())
        place.tmux = tmux->second;
    return place;
}

} // namespace kelvadrome
