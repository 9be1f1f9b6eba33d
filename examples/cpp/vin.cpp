// vin [HOST [PORT]], or vin SOCKET 0: prints the VIN, or why there is none, at each change.
#include <mosquittopp.h>

#include <iostream>
#include <string>

#include <ecu/tamu/pb/messages.pb.h>

constexpr std::size_t header_size = 18;

struct VinReader : mosqpp::mosquittopp {
  std::string shown, value;
  void show(const std::string& text) {
    std::cout << (text == shown ? "" : text + '\n') << std::flush;
    shown = text;
  }
  void on_connect(int code) override {
    show(value = code == 0 ? "no value yet" : mosqpp::connack_string(code));
    // Each time: a restarted broker knows no subscription. Presence last: what it says is true now.
    subscribe(nullptr, "system/var/vehicleid", 0);
    subscribe(nullptr, "system/presence/quil", 1);
  }
  void on_disconnect(int) override { show("no connection"); }
  void on_message(const mosquitto_message* message) override {
    const std::string payload(static_cast<const char*>(message->payload), message->payloadlen);
    ecu::tamu::pb::EcuVariable variable;
    if (payload.size() >= header_size && variable.ParseFromString(payload.substr(header_size))) {
      value = variable.has_value() ? variable.value() : "no value yet";
    }
    show(payload == "offline" ? "daemon off line" : value);
  }
};

int main(int argc, char** argv) {
  mosqpp::lib_init();
  VinReader reader;
  reader.show("no connection");
  reader.connect_async(argc > 1 ? argv[1] : "localhost", argc > 2 ? std::stoi(argv[2]) : 1883);
  return reader.loop_forever();  // only after an error that stays
}
