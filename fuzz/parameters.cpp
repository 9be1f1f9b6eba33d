#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <ecu/quil/sec_store_handler.h>
#include <ecu/quil/sys_param_req_handler.h>
#include <ecu/tamu/com/topics.h>

#include "fuzz/signal_groups.h"
#include "support/fake_client.h"
#include "support/fake_port.h"
#include "support/ports.h"

// Plays records, frames, requests, writes and secrets in any order to the classes that keep the system
// parameters, and to a minimal model of them. Both must publish and write the same.
namespace {

using namespace ecu;
using quil::SysParamContainer;
using State = SysParamContainer::ContainerState;
using Param = SysParamContainer::SysParam;
using Params = std::vector<Param>;
namespace topics = tamu::com::topics;

constexpr std::chrono::milliseconds write_timeout(1000);

const Param* find(const Params& params, std::uint32_t id) {
  const auto found =
      std::find_if(params.begin(), params.end(), [id](const Param& p) { return p.ota_id == id; });
  return found == params.end() ? nullptr : &*found;
}

void put(Params& params, const Param& param) {
  for (Param& held : params) {
    if (held.ota_id == param.ota_id) {
      held = param;
      return;
    }
  }
  params.push_back(param);
}

Params different(const Params& held, const Params& incoming) {
  Params changed;
  for (const Param& param : incoming) {
    const Param* same = find(held, param.ota_id);
    if (same == nullptr || *same != param) {
      changed.push_back(param);
    }
  }
  return changed;
}

std::string bytes_of(const Param& param) {
  return tests::parameter_payload(param.ota_id, param.payload);
}

// A model of the container.
struct Model {
  Params held, frame;
  State state = State::EMPTY, before_write = State::EMPTY;
  std::chrono::milliseconds since_write{0};

  State current() {
    if (state == State::UPDATING && since_write >= write_timeout) {
      state = before_write;
    }
    return state;
  }
  void record(std::uint32_t id, const std::string& data) {
    if (id == 2 || id == 3 || data.empty()) {
      return;
    }
    state = State::RECEIVING;
    if (data.size() >= 4) {
      Param param;
      for (std::size_t i = 4; i-- > 0;) {
        param.ota_id = param.ota_id << 8U | static_cast<std::uint8_t>(data[i]);
      }
      param.payload = data.size() > 8 ? data.substr(8) : "";
      put(frame, param);
    }
  }
  void end_of_frame() {
    if (frame.empty()) {
      return;
    }
    for (const Param& param : std::exchange(frame, {})) {
      put(held, param);
    }
    state = State::SYNCED;
  }
  // The records written to the port.
  Params write(const Params& params, bool accepted) {
    Params changed = different(held, params);
    if (changed.empty()) {
      return {};
    }
    before_write = state;
    state = State::UPDATING;
    since_write = {};
    if (!accepted) {
      state = held.empty() ? State::EMPTY : State::SYNCED;
      changed.clear();
    }
    return changed;
  }
};

class World {
 public:
  void step(FuzzedDataProvider& input) {
    constexpr std::array steps{&World::consume,        &World::consume,        &World::end_of_frame,
                               &World::write_from_bus, &World::write_directly, &World::ask,
                               &World::set_secret,     &World::pass_time,      &World::set_acceptance};
    (this->*input.PickValueInArray(steps))(input);
    compare();
  }

 private:
  static std::string value_from(FuzzedDataProvider& input) {
    std::string value(input.ConsumeIntegralInRange<std::size_t>(0, 20), input.ConsumeIntegral<char>());
    return value;
  }
  static Param param_from(FuzzedDataProvider& input) {
    constexpr std::array<std::uint32_t, 6> ids{0, 1, 2, 3, 0xa009, 0xffffffff};
    const std::uint32_t id = input.PickValueInArray(ids);
    return {id, value_from(input)};
  }

  void consume(FuzzedDataProvider& input) {
    const Param param = param_from(input);
    const std::string data = input.ConsumeBool() ? bytes_of(param) : input.ConsumeRandomLengthString(16);
    port_->consume(tests::record(param.ota_id, data));
    request_model_.record(param.ota_id, data);
    direct_model_.record(param.ota_id, data);
    if ((param.ota_id == 2 || param.ota_id == 3) && data.size() >= 4) {
      publications_.emplace_back(param.ota_id == 2 ? topics::get_master : topics::get_remote,
                                 data.size() > 8 ? data.substr(8) : "");
    }
  }

  void end_of_frame(FuzzedDataProvider& /*input*/) {
    merges_ += request_model_.frame.empty() ? 0 : 1;
    port_->frame_finished();
    request_model_.end_of_frame();
    direct_model_.end_of_frame();
  }

  void write_from_bus(FuzzedDataProvider& input) {
    Params params;
    fuzz::Bytes list;
    for (auto count = input.ConsumeIntegralInRange(0, 3); count > 0; --count) {
      params.push_back(param_from(input));
      fuzz::Bytes entry{0x08};
      fuzz::append_varint(entry, params.back().ota_id);
      fuzz::append_field(entry, 0x22, params.back().payload);
      fuzz::append_field(list, 0x0a, entry);
    }
    send(topics::parameter_write, fuzz::framed(list));
    if (request_model_.current() == State::SYNCED) {
      expect_written(request_model_.write(params, port_->accepts));
    }
  }

  void write_directly(FuzzedDataProvider& input) {
    Params params{param_from(input), param_from(input)};
    const bool wanted = port_->accepts || different(direct_model_.held, params).empty();
    expect_written(direct_model_.write(params, port_->accepts));
    fuzz::require(direct_.update(tests::sequence(std::move(params))) == wanted,
                  "a write succeeds when the port takes it");
  }

  // A request that would wait for an answer is not made.
  void ask(FuzzedDataProvider& input) {
    const State state = request_model_.current();
    if (state == State::UPDATING || state == State::RECEIVING) {
      return;
    }
    const std::size_t before = client_->published.size();
    if (input.ConsumeBool()) {
      send(topics::all_parameters_request, {});
      fuzz::require(client_->published.size() == before + 1, "the list is always sent");
      client_->published.pop_back();
      return;
    }
    const std::uint32_t id = param_from(input).ota_id;
    fuzz::Bytes request;
    fuzz::append_field(request, 0x0a, std::to_string(static_cast<std::int32_t>(id)));
    send(topics::parameter_request, fuzz::framed(request));
    const Param* held = find(request_model_.held, id);
    fuzz::require(client_->published.size() == before + (held == nullptr ? 0 : 1),
                  "what is held is answered");
    if (held != nullptr) {
      fuzz::Bytes entry{0x08};
      fuzz::append_varint(entry, id);
      fuzz::append_field(entry, 0x22, held->payload);
      const auto& answer = client_->published.back().message.payload;
      fuzz::require(std::equal(answer.begin() + 18, answer.end(), entry.begin(), entry.end()),
                    "an answer has identifier and value");
      client_->published.pop_back();
    }
  }

  void set_secret(FuzzedDataProvider& input) {
    const bool master = input.ConsumeBool();
    const std::string value = value_from(input);
    send(master ? topics::set_master : topics::set_remote, {value.begin(), value.end()});
    if (port_->accepts) {
      expect_written({{master ? 2U : 3U, value}});
      publications_.emplace_back(master ? topics::get_master : topics::get_remote, value);
    }
  }

  void pass_time(FuzzedDataProvider& input) {
    const std::chrono::milliseconds time(input.ConsumeIntegralInRange(0, 1500));
    now_ += time;
    direct_model_.since_write += time;
  }
  void set_acceptance(FuzzedDataProvider& input) { port_->accepts = input.ConsumeBool(); }

  void send(const char* topic, tamu::com::Payload payload) {
    client_->observers.at(topic)->message(topic, tamu::com::make_message(0, std::move(payload)));
  }
  void expect_written(const Params& params) {
    for (const Param& param : params) {
      written_.push_back(param);
    }
  }

  void compare() {
    fuzz::require(port_->written.size() == written_.size(), "as many records are written as must be");
    for (std::size_t i = 0; i < written_.size(); ++i) {
      const auto& [id, flag, stamp, data] = port_->written[i];
      fuzz::require(
          id == written_[i].ota_id && std::string(data.begin(), data.end()) == bytes_of(written_[i]),
          "a record has identifier, length and value");
    }
    fuzz::require(client_->published.size() == publications_.size(),
                  "secrets are published, and nothing else");
    for (std::size_t i = 0; i < publications_.size(); ++i) {
      const auto& [topic, message] = client_->published[i];
      fuzz::require(
          topic == publications_[i].first &&
              std::string(message.payload.begin(), message.payload.end()) == publications_[i].second &&
              message.retained && message.acknowledged,
          "a secret is published as it is, retained and acknowledged");
    }
    port_->written.clear();
    written_.clear();
    client_->published.clear();
    publications_.clear();
    fuzz::require(direct_.get_sysparams() == direct_model_.held, "the copy holds what was received");
    fuzz::require(direct_.get_state() == direct_model_.current(), "the state is that of the model");
    const Param* version = find(request_model_.held, 0xa009);
    fuzz::require(requests_.get_top_version() == (version == nullptr ? "" : version->payload),
                  "the top version is a parameter like any other");
    fuzz::require(merges_ == calls_, "each merged frame is reported once");
  }

  std::chrono::steady_clock::time_point now_;
  std::shared_ptr<tests::FakeClient> client_ = std::make_shared<tests::FakeClient>();
  std::shared_ptr<tests::FakePort> port_ = std::make_shared<tests::FakePort>();
  int calls_ = 0;
  int merges_ = 0;
  quil::SysParamReqHandler requests_{client_, port_, [this] { ++calls_; }, std::chrono::hours(1)};
  quil::SecStoreHandler secrets_{client_, port_};
  SysParamContainer direct_{port_, nullptr, write_timeout, [this] { return now_; }};
  Model request_model_;  // of the container inside requests_, whose clock stands still
  Model direct_model_;   // of direct_
  Params written_;       // the expected writes to the port since the last step
  std::vector<std::pair<std::string, std::string>> publications_;  // the expected publications on the bus
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::silence();
  FuzzedDataProvider input(data, size);
  World world;
  while (input.remaining_bytes() > 0) {
    world.step(input);
  }
  return 0;
}
