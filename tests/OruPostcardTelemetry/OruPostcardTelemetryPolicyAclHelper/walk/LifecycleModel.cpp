#include "OruPostcardTelemetry/OruPostcardTelemetryPolicyAclHelper/walk/LifecycleModel.h"

namespace LifecycleModel {

namespace {

std::string message(const std::string& what, const Policy& policy, int family) {
   return what + " " + policy.name + (policy.scope.empty() ? "" : "/" + policy.scope) +
          " Match Option : " + std::to_string(family);
}

template <class Items>
std::string joined(const Items& items) {
   std::string text;
   for (const auto& item : items) {
      text += text.empty() ? item : "," + item;
   }
   return text;
}

const char* const eventNames[] = {"policyCreate", "policyUpdate", "policyDelete",
                                  "policyIntfUpdate"};

} // namespace

std::string Config::text() const {
   std::string history;
   for (const auto& [index, status] : texts) {
      history += " " + std::to_string(index) + "='" + status + "'";
   }
   return key + " family " + std::to_string(family) + " rules " + joined(rules) + " interfaces " +
          joined(interfaces) + (programmed ? " programmed" : "") + (updated ? " updated" : "") +
          " history" + history + " next " + std::to_string(next);
}

std::string Model::key(const Policy& policy, int family) {
   return policy.name + (family == 0 ? "-ipv4" : "-ipv6");
}

bool Model::current() const {
   const auto found = configs.find(about->key);
   return found != configs.end() && found->second == about;
}

std::string Model::reach(const std::string& path, std::string text) {
   ++reached[path];
   return text;
}

std::shared_ptr<Config> Model::add(const std::string& key, int family) {
   const auto config = std::make_shared<Config>();
   config->key = key;
   config->family = family;
   configs[key] = config;
   published.push_back("aclConfigColl +" + key);
   return config;
}

void Model::drop(const std::string& key) {
   configs.erase(key);
   published.push_back("aclConfigColl -" + key);
}

std::string Model::report(const std::string& text) {
   published.push_back("asyncOperationResult " + text);
   return result = text;
}

// Returns what is wrong with the policy.
std::string Model::build(Config& config, const Policy& policy, int family) {
   config.interfaces = policy.interfaces[family];
   const Content content = policy.content[family];
   if (content == Content::nothing) {
      return "No rules configured in policy  ...";
   }
   std::vector<std::string> classes;
   if (content != Content::bad) {
      classes.emplace_back("first");
   }
   if (content == Content::two) {
      classes.emplace_back("second");
   }
   for (const std::string& name : classes) {
      config.rules.push_back(name + (family == 0 ? "-ipv4-tcp" : "-ipv6-tcp"));
      config.rules.push_back(name + (family == 0 ? "-ipv4-udp" : "-ipv6-udp"));
   }
   const bool good = content == Content::one || content == Content::two;
   return good ? "" : "Unsupported match(es): 'Fragments', in configuration";
}

std::string Model::finish(const std::string& message) {
   if (message.empty()) {
      return reach("built");
   }
   if (message.find("No rules configured in policy") != std::string::npos) {
      return reach("built without rules", report(""));
   }
   return reach("built with a message", report(message));
}

std::string Model::create(const Policy& policy, int family) {
   const auto config = add(key(policy, family), family);
   return finish(build(*config, policy, family));
}

std::string Model::recreate(const Policy& policy, int family) {
   const auto old = configs.at(key(policy, family));
   drop(old->key);
   const auto config = add(old->key, family);
   const std::string message = build(*config, policy, family);
   config->programmed = old->programmed;
   config->updated = old->updated;
   for (const auto& [index, text] : old->texts) {
      reach(index == config->next ? "recreated, number kept" : "recreated, number closed up");
      config->texts[config->next++] = text;
   }
   reach(old == about ? "recreated under a request" : "recreated");
   return finish(message);
}

std::string Model::commit(const Policy& policy, int family) {
   const auto config = configs.at(key(policy, family));
   if (config->rules.empty()) {
      return reach("commit without rules", report(""));
   }
   reach(config->updated ? "commit of an update" : "commit of a creation");
   post(config->updated ? 1 : 0, config, "");
   return "";
}

std::string Model::remove(const Policy& policy, int family) {
   if (!has(policy, family)) {
      return reach(
            "deletion of nothing",
            message("Delete Policy received for a non-existent policy, Policy :", policy, family));
   }
   const auto config = configs.at(key(policy, family));
   if (config->updated) {
      reach("deletion with a request");
      post(2, config, "");
   } else {
      reach("deletion without a request");
   }
   drop(config->key);
   return "";
}

std::string Model::changeInterface(const Policy& policy, int family, const std::string& intf,
                                   bool removal) {
   const auto config = configs.at(key(policy, family));
   const std::string what = removal ? "removal" : "addition";
   if (config->rules.empty()) {
      return reach(what + " without rules", report(""));
   }
   if (removal) {
      config->interfaces.erase(intf);
   } else {
      config->interfaces.insert(intf);
   }
   if (config->programmed) {
      reach(what + " passed on");
      post(3, config, intf);
      return "";
   }
   if (config->next == 0) {
      const std::string text = message(
            std::string{removal ? "Remove Interface from" : "Add Interface to"} +
                  " Policy received for a non committed policy, aborting further processing,  "
                  "Policy :",
            policy, family);
      return reach(what + " with our message", report(text));
   }
   const auto latest = config->texts.find(config->next - 1);
   if (latest == config->texts.end()) {
      return reach(what + " without a text", report(""));
   }
   return reach(what + " with the latest text", report(latest->second));
}

void Model::post(int newEvent, const std::shared_ptr<Config>& config, const std::string& intf) {
   if (event != newEvent) {
      published.push_back(std::string{"event "} + eventNames[event]);
   }
   if (about != config) {
      published.push_back("aclConfig " + (about == nullptr ? "nothing" : about->key));
   }
   if (!intf.empty() && interface != intf) {
      published.push_back("currIntf " + interface);
   }
   published.push_back("kickRequest " + std::to_string(count));
   event = newEvent;
   about = config;
   interface = intf.empty() ? interface : intf;
   config->updated = true;
   ++count;
   if (client == Client::later) {
      ++unanswered;
   } else {
      const bool success = client == Client::succeedsAtOnce;
      returned.push_back(reach("answered at once", answer(success, success ? "" : "busy")));
   }
}

std::string Model::answer(bool success, const std::string& text) {
   const auto config = configs.at(about->key);
   reach(config == about ? "answer for the request's configuration" : "answer for its successor");
   if (config->next != 0) {
      reach(std::string{success ? "success" : "failure"} + " after " +
            (config->programmed ? "success" : "failure"));
   }
   config->texts[config->next++] = text;
   config->programmed = success;
   return success ? "" : text;
}

} // namespace LifecycleModel
