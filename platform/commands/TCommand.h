#ifndef OSTREL_TCOMMAND_H
#define OSTREL_TCOMMAND_H

namespace Ostrel {

class GingaEndPoint;

// Base of every command and response of the command library. A command is
// made by commandFactory, given an end point, filled through the setters of
// its class and sent; the sender deletes it afterwards, except an open data
// request (see TDataRequestCommand).
class TCommand {
 public:
  typedef TCommand* (*FactoryHook)(unsigned short code);

  explicit TCommand(unsigned short code);
  virtual ~TCommand();

  // Hands the command to its end point's execute and returns what execute
  // returned, passing through whatever answer execute set, on failure too.
  // With no end point it returns 0 and sets nothing.
  virtual int send(TCommand** response);

  void setEndPoint(GingaEndPoint* endPoint) { m_pEndPoint = endPoint; }
  GingaEndPoint* getEndPoint() const { return m_pEndPoint; }
  unsigned short getCode() const { return m_usCode; }

  // A new object of the class that belongs to code, or null for an unknown
  // code; while a hook is set, whatever the hook returns. The caller owns it.
  static TCommand* commandFactory(unsigned short code);

  // The built-in factory, for hooks that let a code through.
  static TCommand* createDefault(unsigned short code);

  // Test seam: replaces the factory until called again; null clears it.
  static void setFactoryHook(FactoryHook hook);

  // Commands and responses alive in the process: a leak check for tests.
  static long getLiveCount();

 private:
  TCommand(const TCommand&);
  TCommand& operator=(const TCommand&);

  unsigned short m_usCode;
  GingaEndPoint* m_pEndPoint;
};

}  // namespace Ostrel

#endif  // OSTREL_TCOMMAND_H
