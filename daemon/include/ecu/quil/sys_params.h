#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace ecu::quil {

/// A system parameter: its identifier, as the real-time side numbers it, and its value, which may be any
/// bytes.
struct SysParam {
  std::uint32_t ota_id = 0;
  std::string payload;

  friend bool operator==(const SysParam&, const SysParam&) = default;
};

/// Parameters in the order of first arrival, each identifier once. Has no lock.
class SysParams {
 public:
  /// Replaces the payload of the parameter with that identifier, or appends the parameter.
  void put(SysParam param);
  /// The parameter with that identifier; null when there is none.
  [[nodiscard]] const SysParam* find(std::uint32_t ota_id) const;
  [[nodiscard]] const std::vector<SysParam>& all() const& noexcept { return m_params; }
  [[nodiscard]] std::vector<SysParam> all() && noexcept { return std::move(m_params); }
  [[nodiscard]] bool empty() const noexcept { return m_params.empty(); }
  /// The bytes of all payloads together.
  [[nodiscard]] std::size_t payload_bytes() const noexcept { return m_payload_bytes; }

 private:
  std::vector<SysParam> m_params;
  std::unordered_map<std::uint32_t, std::size_t> m_index;  // of m_params, by identifier
  std::size_t m_payload_bytes = 0;
};

}  // namespace ecu::quil
