#include <utility>

#include <ecu/quil/sys_params.h>

namespace ecu::quil {

void SysParams::put(SysParam param) {
  const std::size_t added = param.payload.size();
  if (const auto held = m_index.find(param.ota_id); held != m_index.end()) {
    std::string& payload = m_params[held->second].payload;
    m_payload_bytes -= payload.size();
    payload.swap(param.payload);  // an assignment could keep the memory of a longer payload
  } else {
    // When memory runs out here, the index may lack a parameter, but never refers to one that is not there.
    m_params.push_back(std::move(param));
    m_index.emplace(m_params.back().ota_id, m_params.size() - 1);
  }
  m_payload_bytes += added;
}

const SysParam* SysParams::find(std::uint32_t ota_id) const {
  const auto found = m_index.find(ota_id);
  return found == m_index.end() ? nullptr : &m_params[found->second];
}

}  // namespace ecu::quil
