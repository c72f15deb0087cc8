#ifndef OSTREL_T_APP_COMMAND_H
#define OSTREL_T_APP_COMMAND_H

#include <string>

#include "TCommand.h"

namespace Ostrel {

// Base of the commands about one application: carries its id.
class TAppCommand : public TCommand {
 protected:
  explicit TAppCommand(unsigned short code);

 public:
  virtual ~TAppCommand();

  void setAppId(std::string appId) { m_strAppId.swap(appId); }
  const std::string& getAppId() const { return m_strAppId; }

 private:
  std::string m_strAppId;
};

}  // namespace Ostrel

#endif  // OSTREL_T_APP_COMMAND_H
