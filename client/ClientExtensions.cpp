#include "client/ClientExtensions.h"

#include <mutex>
#include <unordered_map>

#include "client/FusedIntake.h"

ClientExtensions::ClientExtensions() = default;
ClientExtensions::~ClientExtensions() = default;

namespace hdsml {
namespace {

// One table for the process: clients are few and long-lived, and each thread
// looks its client up once per frame at most.
struct Registry {
  std::mutex mutex;  // guards byClient
  std::unordered_map<const HDSMLClient*, std::unique_ptr<ClientExtensions>> byClient;
};

// Never destroyed: a client destroyed from another static's destructor still
// finds the table.
Registry& registry() {
  static Registry* instance = new Registry;
  return *instance;
}

}  // namespace

ClientExtensions& attachExtensions(const HDSMLClient* client) {
  auto fresh = std::make_unique<ClientExtensions>();
  ClientExtensions& result = *fresh;
  std::unique_ptr<ClientExtensions> stale;
  {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    std::swap(stale, r.byClient[client]);
    r.byClient[client] = std::move(fresh);
  }
  return result;
}

void detachExtensions(const HDSMLClient* client) {
  std::unique_ptr<ClientExtensions> gone;
  {
    Registry& r = registry();
    std::lock_guard<std::mutex> lock(r.mutex);
    auto it = r.byClient.find(client);
    if (it == r.byClient.end()) return;
    gone = std::move(it->second);
    r.byClient.erase(it);
  }
  // Destroyed outside the lock: a member's destructor may take locks of its own.
}

ClientExtensions* findExtensions(const HDSMLClient* client) {
  Registry& r = registry();
  std::lock_guard<std::mutex> lock(r.mutex);
  auto it = r.byClient.find(client);
  return it == r.byClient.end() ? nullptr : it->second.get();
}

}  // namespace hdsml
