// How records, frames and calls look, as text and as JSON.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "log/log_calls.h"
#include "log/log_filter.h"
#include "masking/masker.h"
#include "terminal/settings.h"

namespace satctl {

class LogView {
 public:
  LogView(const GivenView& given, const Settings& settings)
      : mask_(!given.no_mask), json_(settings.json), decode_(given.frames) {}

  // Before anything is shown of it.
  void learn(const Record& record);

  void show(const Record& record, const LoggedCall* call) const;
  void show(const LoggedCall& call) const;

 private:
  struct NamedValue {
    std::string name, value;
  };

  std::string text_of(const Record& record) const;
  std::string function_of(const Record& record) const;
  std::string mark_of(const Record& frame) const;
  std::string text_of(const Step& step) const;
  std::vector<NamedValue> values_of(const Record& frame, const Function* function) const;

  void show_record(const Record& record) const;
  void show_record_as_json(const Record& record, const LoggedCall* call) const;
  void show_frame(const Record& frame, const LoggedCall* call) const;
  void show_frame_as_json(const Record& frame, const std::vector<NamedValue>& values) const;
  void show_call_as_text(const LoggedCall& call) const;
  void show_call_as_json(const LoggedCall& call) const;

  masking::Masker masker_;
  bool mask_, json_, decode_;
};

}  // namespace satctl
