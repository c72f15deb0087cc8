#ifndef OSTREL_T_TABLE_KEY_COMMAND_H
#define OSTREL_T_TABLE_KEY_COMMAND_H

#include "TCommand.h"

namespace Ostrel {

// Base of the table requests: the request key (tuner, PID, table id, extension).
class TTableKeyCommand : public TCommand {
 protected:
  explicit TTableKeyCommand(unsigned short code);

 public:
  virtual ~TTableKeyCommand();

  void setTunerId(int tunerId) { m_iTunerId = tunerId; }
  int getTunerId() const { return m_iTunerId; }
  void setPid(short pid) { m_sPid = pid; }
  short getPid() const { return m_sPid; }
  void setTableId(short tableId) { m_sTableId = tableId; }
  short getTableId() const { return m_sTableId; }
  void setTableIdExt(short tableIdExt) { m_sTableIdExt = tableIdExt; }
  short getTableIdExt() const { return m_sTableIdExt; }

 private:
  int m_iTunerId;
  short m_sPid;
  short m_sTableId;
  short m_sTableIdExt;
};

}  // namespace Ostrel

#endif  // OSTREL_T_TABLE_KEY_COMMAND_H
