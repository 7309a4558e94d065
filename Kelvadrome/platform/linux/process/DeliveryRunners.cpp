#include "Kelvadrome/platform/linux/process/DeliveryRunners.h"

#include "Kelvadrome/platform/linux/process/ProcAgentWatch.h"
#include "Kelvadrome/platform/linux/process/ProcessRunner.h"
#include "KelvadromeKit/delivery/BoundedRunner.h"
#include "KelvadromeKit/delivery/TmuxGate.h"

namespace kelvadrome {

namespace {

std::shared_ptr<CommandRunning> orRealChildren(std::shared_ptr<CommandRunning> innermost,
    BackgroundPool& pool, const std::map<std::string, std::string>& environment) {
    return innermost ? std::move(innermost) : std::make_shared<ProcessRunner>(pool, environment);
}

} // namespace

DeliveryRunners::DeliveryRunners(BackgroundPool& pool, const std::map<std::string, std::string>& environment,
    std::shared_ptr<Clock> clock, std::shared_ptr<CommandRunning> innermost)
    : pool_(pool), clock_(std::move(clock)),
      bounded_(
          std::make_shared<BoundedRunner>(orRealChildren(std::move(innermost), pool, environment), clock_)) {}

std::shared_ptr<CommandRunning> DeliveryRunners::forJob(const DeliverJob& job) const {
    return std::make_shared<TmuxGate>(
        job, bounded_, std::make_shared<ProcAgentWatch>(job.pid, pool_), clock_);
}

} // namespace kelvadrome
