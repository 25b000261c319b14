#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "reports/ZLNReportBase.h"
#include "session/ZLNSession.h"

namespace zln {

// What the three reports about a session have in common. A report shares the session: its
// dictionary shows the session as it is when the dictionary is made.
class SessionReport : public ZLNReportBase {
 public:
  std::optional<Dictionary> toDictionary() const override;
  std::uint64_t revision() const override;

  // Null when a restored report's dictionary held no session.
  const std::shared_ptr<ZLNSession>& session() const { return session_; }

 protected:
  // How the kinds differ.
  struct Kind {
    const char* url;
    const char* reportType;
    // The report type for which the session is asked.
    const char* sessionView;
  };

  SessionReport(const Kind& kind, std::shared_ptr<ZLNSession> session);
  SessionReport(const Kind& kind, const Dictionary& dictionary);

 private:
  const Kind& kind_;
  std::shared_ptr<ZLNSession> session_;
};

}  // namespace zln
