#ifndef QOVPUB_QOV_LONG_SOCKET_H
#define QOVPUB_QOV_LONG_SOCKET_H

#include <ace/INET_Addr.h>
#include <ace/Time_Value.h>
#include <qovpub/qov_export.h>
#include <qovpub/qov_message_package.h>

#include <memory>
#include <string>

/// The long-lived TCP connection to the management endpoint: sends one V3 message and waits for the
/// one that answers it.
///
/// It connects when it is made and stays connected. Whatever fails on the way closes the connection
/// and makes a new one at once; an exchange repeats its request once when that happens. A link
/// without a connection (the endpoint was away) tries again with its next exchange.
///
/// A process that has forked uses it on one side only; the child may only if no thread was in the
/// link at the fork. Make it after CQOVapp::init(): becoming a daemon closes its descriptors.
///
/// Thread: sendMsg(), sendGetNextMsgV3(), interrupt() and resume() from any thread. An exchange has
///         the connection for itself; a walk lets those of other threads in between its steps. All
///         other operations are the steps of an exchange: they are for derived classes and need the
///         link alone.
/// Owns:   the connection and 2 MiB to receive in. Packages stay with the caller.
/// Errors: by the result and a log line. std::bad_alloc comes through, and what the message model
///         throws: CQOV_Exception as sendGetNextMsgV3() has it.
///
/// The class has virtual operations but no virtual destructor: the layout of its table of
/// virtual operations is fixed. Delete an object as what it was made. -Wnon-virtual-dtor is off for
/// this class alone: a class derived from it has that warning for itself.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
class QOV_EXPORT CQOVLongSocket {
 public:
  /// The message could not be encoded; nothing was sent.
  static constexpr unsigned int kNotEncoded = 16797697;
  /// What came does not answer the request: it has another serial number, or cannot be decoded. In
  /// a walk also: it does not have exactly one record.
  static constexpr unsigned int kBadReply = 16797698;
  /// Sending or receiving failed; the link has tried to connect anew, unless it was interrupted.
  static constexpr unsigned int kSocketFailed = 16797704;

  /// The longest message that can be received, its header included.
  static constexpr unsigned int kMaxMessage = 2097152;

  /// Connects to the endpoint that key "MMT_ADDR" of section "MMT" of the process's configuration
  /// file names as host:port, or to 127.0.0.1:19001 if it names none. Never fails: without a
  /// connection or an address the first exchange tries again. A value that is no host:port is
  /// logged; the link never connects then.
  CQOVLongSocket();
  ~CQOVLongSocket();

  /// Whether `text` has the form of "MMT_ADDR": host:port, [address]:port, or a port alone. Names
  /// of hosts are not looked up.
  static bool isEndpoint(const std::string& text);

  CQOVLongSocket(const CQOVLongSocket&) = delete;
  CQOVLongSocket& operator=(const CQOVLongSocket&) = delete;

  /// Gives `package` a fresh serial number, sends it and waits for its answer, which `package`
  /// holds afterwards. Takes 30 seconds to send, 30 to receive the header, 30 to receive the rest
  /// and 2 to connect at most, all of it twice when it fails. A name that could not be looked up so
  /// far takes, each time, as long as the system's name servers do. Other exchanges wait meanwhile.
  ///
  /// Returns 0, one of the three results above, or the answer's RET field, when that is not 0;
  /// `package` has the answer's header and records then, too, if it can be decoded. After
  /// kNotEncoded, and when neither attempt could be sent, it has the request; in all other cases no
  /// records. A request of megabytes may be cut short, which counts as sent; the link then connects
  /// anew behind the answer.
  unsigned int sendMsg(CT7QPackageV3* package);

  /// Reads a table: sends `package`, then each answer's record as the next request, until a record
  /// has status 1 in its cell with tag 4095. `package` receives each record that came
  /// before that one, and at the end a record without cells that has its command code.
  ///
  /// Returns 0, or the result of the exchange that failed. A failed exchange ends the walk, and so
  /// does a status other than 0 and 1, which is logged and has the result 0; after either, the
  /// record without cells is missing. The walk also ends after 10,000 records. Throws
  /// CQOV_Exception when a status cell holds no number. What was read so far is in `package` in any
  /// case.
  unsigned int sendGetNextMsgV3(CT7QPackageV3* package);

  /// Ends the exchanges under way, in other threads, and all that begin before resume(): result
  /// kSocketFailed, no retry. It does not matter what they wait for: to connect, to send, to
  /// receive, or for each other. Only the system's look-up of a name runs to its end. Does not wait
  /// until they have ended. An exchange that notices it closes the connection; the first one after
  /// resume() makes another.
  ///
  /// For a module that stops: one call, at any time, and no thread of it stays in the link.
  void interrupt();

  /// Lets exchanges work again. One under way that has noticed interrupt() still ends. One under
  /// way that has not noticed goes on, but without a retry. One that has waited for its turn all
  /// the time goes on like any other, retry included.
  void resume();

  /// Connects to the endpoint in place of the connection that may be there. A host may have several
  /// addresses: they are tried in turn, each once, for an equal part of what is left of 2 seconds.
  /// A name that could not be looked up so far is looked up first, which takes as long as the
  /// system's name servers do. Returns 0, or -1 without a connection.
  int setupConnection();

  /// Waits until the connection takes anything, for at most 30 seconds, and sends `length` bytes.
  /// One call of the system: if it takes a part only, that is all that is sent, and the exchange
  /// connects anew at its end. Returns 0, or kSocketFailed after connecting anew.
  virtual unsigned int sendMsg_i(const unsigned char* data, unsigned int length);

  /// Receives one message and puts it into `package`; recvData() with 30 seconds, then convert().
  virtual unsigned int receiveMsg(CT7QPackageV3* package);

  /// Receives one message into `buffer`, which has room for kMaxMessage bytes and need not be the
  /// link's own, and sets `length` to its length, as the header in `buffer` has it. `timeout` is
  /// for the whole header and, anew, for all behind it; null waits as long as it takes. Returns 0,
  /// or kSocketFailed after connecting anew with `length` unchanged.
  unsigned int recvData(char* buffer, unsigned int& length, const ACE_Time_Value* timeout);

  /// Decodes the message of `length` bytes at `data` into `package`, whose serial number it must
  /// have. Returns as sendMsg().
  unsigned int convert(unsigned char* data, unsigned int length, CT7QPackageV3* package);

 protected:
  /// How long a step may take; the numbers are seconds.
  struct Limits {
    ACE_Time_Value connect{2};  ///< to all addresses of a host together; not to look its name up
    ACE_Time_Value send{30};    ///< until the connection takes anything
    ACE_Time_Value reply{30};   ///< until the header is here, and again until the rest is
  };

  /// Connects to `endpoint`; no configuration file is read. Throws std::bad_alloc.
  CQOVLongSocket(const ACE_INET_Addr& endpoint, const Limits& limits);
  /// The same with a text as of "MMT_ADDR": host:port, or [address]:port.
  CQOVLongSocket(const std::string& endpoint, const Limits& limits);

  /// In the steps of an exchange: whether they are its second attempt.
  bool isRetry() const;

  /// Why the last attempt to connect has failed, as in "Connection refused" or "no such host"; of a
  /// host with several addresses: "[::1]:19001: Connection refused; 127.0.0.1:19001: ...". Empty
  /// when it has succeeded.
  std::string whyNotConnected() const;

  /// Why the last recvData() that failed has failed, an errno value: ETIME when the time was over,
  /// EMSGSIZE when the message is longer than kMaxMessage, ENOLINK when the peer has closed the
  /// connection. 0 when none has failed.
  int whyNotReceived() const;

 private:
  class Exchange;
  class Reception;
  struct State;

  unsigned int reconnect();
  void disconnect();

  const std::unique_ptr<State> state_;
};
#pragma GCC diagnostic pop

#endif
