// Every output file of the program goes through SaidaSegura: a run that fails,
// fills the disk or is interrupted leaves each destination as it was.
//
// How one output is written:
//   1. The destination is resolved: a symbolic link is followed to its final
//      target (the link stays, the target is replaced); a destination that is
//      not a regular file (a device, a FIFO) is written straight through,
//      since it cannot be replaced; a folder is refused.
//   2. A temporary "quivelar-<pid>-<n>.tmp" is created in the target's own
//      folder (the rename must not cross file systems). The name is short, so
//      any name the system accepts as a destination works, and says what it is
//      if a SIGKILL leaves it behind.
//   3. Bytes go through escreve(), which checks every write(2): a full disk
//      or a file-size limit (SIGXFSZ is ignored, write reports EFBIG) stops
//      the tool with "Erro: falha ao gravar <destino>: <motivo>".
//   4. confirma(): fsync, close (both checked), the old file's mode (and, for
//      root, its owner) given to the new one, rename over the target, fsync of
//      the folder.
// Not confirmed (an error, an exception), the destructor removes the
// temporary. SIGINT, SIGTERM and SIGHUP remove every live temporary and then
// end the process by the same signal, as an interrupted program must.
//
// Threads: any number of writers may live and be confirmed at once on any
// threads, each object used by one thread at a time.
//
// Hard links: the rename gives the destination's name a new file; other names
// of the old file keep the old contents.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <sys/types.h>

namespace tvm {

class SaidaSegura {
 public:
  // Stops the tool with mensagemAbertura + destino when the destination is a
  // folder or its temporary cannot be created (missing or read-only folder).
  explicit SaidaSegura(std::string destino, std::string mensagemAbertura = "Erro abertura arquivo ");
  ~SaidaSegura();
  SaidaSegura(const SaidaSegura&) = delete;
  SaidaSegura& operator=(const SaidaSegura&) = delete;

  // Appends bytes; a failed write stops the tool at once.
  void escreve(const void* dados, size_t n);
  void escreve(const std::string& texto) { escreve(texto.data(), texto.size()); }

  // For a writer that must open the file by name; it must check its own
  // writes and close (tvm::Arquivo::fecha). The house writers use escreve().
  const std::string& temporario() const { return temporario_; }
  const std::string& destino() const { return destino_; }

  // Makes the written bytes the destination's contents; stops the tool if
  // that fails, the destination untouched.
  void confirma();
  // The same for outputs of one run that go together: each replaces its
  // destination, or, when any fails, none does.
  static void confirmaJuntas(std::initializer_list<SaidaSegura*> saidas);

 private:
  void descarrega();
  void escreveJa(const char* bytes, size_t n);
  void preparaTroca();
  void falhaGravacao(int codigo) const;

  std::string destino_, mensagemAbertura_;
  std::string alvo_;        // the file really replaced: destino_ with its links followed
  std::string nomeAlvo_;    // alvo_'s last component, relative to pasta_
  std::string temporario_;  // path of the temporary, or alvo_ when written straight through
  std::string nomeTemp_;
  std::string buffer_;
  int pasta_ = -1, fd_ = -1;
  bool direto_ = false, existia_ = false, confirmado_ = false;
  mode_t modo_ = 0;
  uid_t dono_ = 0;
  gid_t grupo_ = 0;
  int vaga_ = -1;  // slot in the table the signal handler empties
};

// Stops the tool with "Erro: saidas com o mesmo nome <nome>" when two of the
// names lead to the same file, so that one output would silently replace the
// other. Devices and FIFOs may repeat.
void exigeSaidasDistintas(std::initializer_list<std::string> nomes);

// Removes every live temporary; async-signal-safe, for a handler that ends
// the process (the read time limit of tvm::Vigia).
void removeTemporarios();

}  // namespace tvm
