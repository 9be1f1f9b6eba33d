#include <fstream>
#include <iostream>
#include <string>

#include "common/variable_catalogue.h"
#include "reference/asyncapi.h"

namespace {

// A JSON array with a variable on each line.
std::string catalogue() {
  std::string text;
  for (const ecu::tools::VariableInfo& info : ecu::tools::variables()) {
    text += (text.empty() ? "[\n" : ",\n") + json_of(info).dump();
  }
  return text + "\n]\n";
}

}  // namespace

// Writes asyncapi.yaml and catalogue.json into the folder that is its only argument.
int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "write_reference: usage: write_reference FOLDER\n";
    return 1;
  }
  const std::string folder = argv[1];
  std::ofstream yaml(folder + "/asyncapi.yaml"), json(folder + "/catalogue.json");
  yaml << ecu::reference::asyncapi() << std::flush;
  json << catalogue() << std::flush;
  if (!yaml || !json) {
    std::cerr << "write_reference: cannot write into " << folder << '\n';
    return 1;
  }
  return 0;
}
