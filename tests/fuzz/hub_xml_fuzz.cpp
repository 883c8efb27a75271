// Documents of tills and devices, and the replies that they come in. Every document is made of itself.

#include <cstdint>
#include <cstdlib>
#include <string>

#include "hub/proof/proof.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  const hub::DocumentFacts facts = hub::facts_of(text);
  if (hub::made_of(facts, facts) != facts.readable) std::abort();
  const hub::Reply reply(text);
  hub::Order order;
  order.data = facts;
  const hub::Known nothing = [](const hub::AccessKey&) { return false; };
  const bool proven = hub::proves_issue(order, reply, nothing);
  if (proven && !reply.receipt()) std::abort();
  hub::judge(order, reply, nothing);
  hub::find_out(order, {reply, reply, reply}, nothing);
  return 0;
}
