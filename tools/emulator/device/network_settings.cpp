#include "device/network_settings.h"

#include <arpa/inet.h>

#include <pugixml.hpp>

namespace emulator {

namespace {

struct Address {
  const char* name;
  std::string Network::*field;
};
constexpr Address kAddresses[] = {{"lanIP", &Network::ip},
                                  {"lanMask", &Network::mask},
                                  {"lanGW", &Network::gateway},
                                  {"lanDNS1", &Network::dns1},
                                  {"lanDNS2", &Network::dns2}};

bool valid_ipv4(const char* text) {
  in_addr address{};
  return inet_pton(AF_INET, text, &address) == 1;
}

}  // namespace

std::optional<Network> read_network_settings(std::string_view xml, const Network& former) {
  pugi::xml_document document;
  if (!document.load_buffer(xml.data(), xml.size())) return std::nullopt;
  const auto config = document.child("config");
  const std::string type = config.child("tipoLan").text().get();
  if (type != "DHCP" && type != "PPPoE" && type != "IPFIX") return std::nullopt;

  Network network = former;
  network.type = type;
  if (type != "IPFIX") return network;
  for (const Address& address : kAddresses) {
    const char* text = config.child(address.name).text().get();
    if (!valid_ipv4(text)) return std::nullopt;
    network.*address.field = text;
  }
  return network;
}

}  // namespace emulator
