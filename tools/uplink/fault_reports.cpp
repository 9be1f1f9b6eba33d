#include "uplink/fault_reports.h"

namespace ecu::uplink {

namespace {

constexpr std::chrono::minutes interval{10};
constexpr std::size_t max_subjects = 64;
constexpr std::size_t longest_subject = 80;

}  // namespace

bool FaultReports::must_report(const std::string& subject, BootTime now) {
  std::erase_if(faults_, [now](const auto& entry) {
    return entry.second.is_over && now - entry.second.reported >= interval;
  });
  const std::string key = subject.substr(0, longest_subject);
  if (const auto known = faults_.find(key); known != faults_.end()) {
    known->second.is_over = false;
    return false;
  }
  return faults_.size() < max_subjects && faults_.try_emplace(key, Fault{now}).second;
}

void FaultReports::set_usable(const std::string& subject) {
  if (const auto known = faults_.find(subject.substr(0, longest_subject)); known != faults_.end()) {
    known->second.is_over = true;
  }
}

}  // namespace ecu::uplink
