#include "support/saida_segura.hpp"

#include "support/erro.hpp"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace tvm {

namespace {

// Linux's own bound on a chain of symbolic links.
constexpr int kMaxLinks = 40;
// Below this, bytes wait in memory; a larger write goes straight out.
constexpr size_t kBloco = size_t{1} << 16;
constexpr int kSinaisDeFim[] = {SIGINT, SIGTERM, SIGHUP};

// The live temporaries, for the signal handler: a fixed table, since a
// handler may neither allocate nor take a lock. A writer claims a free slot
// (compare-exchange, so two threads never share one), fills it, then
// publishes it with a release store; the handler acquire-loads the state and
// reads only published slots, whose name is then complete.
static_assert(std::atomic<int>::is_always_lock_free, "the signal handler needs a lock-free atomic");
enum EstadoVaga : int { kLivre, kPreenchendo, kPublicada };
struct Vaga {
  std::atomic<int> estado{kLivre};
  int pasta = -1;
  char nome[48] = {};
};
Vaga vagas[64];

// Called with the end signals held (SinaisRetidos), so that no handler runs
// while a slot is claimed.
int ocupaVaga(int pasta, const std::string& nome) {
  for (Vaga& v : vagas) {
    int livre = kLivre;
    if (!v.estado.compare_exchange_strong(livre, kPreenchendo, std::memory_order_acquire)) continue;
    v.pasta = pasta;
    std::strncpy(v.nome, nome.c_str(), sizeof v.nome - 1);
    v.estado.store(kPublicada, std::memory_order_release);
    return static_cast<int>(&v - vagas);
  }
  return -1;  // the destructor still removes it; only a signal would not
}

void liberaVaga(int& vaga) {
  if (vaga >= 0) vagas[vaga].estado.store(kLivre, std::memory_order_release);
  vaga = -1;
}

// The hold on SIGINT, SIGTERM and SIGHUP: how many threads have the table or
// a set of destinations half changed, and two flags. A signal that comes
// while the count is above zero is only noted (kPendente); whoever brings
// the count to zero delivers it. A count rather than a signal mask, since
// the signal may land on any thread, including one that holds nothing. One
// word, so that the handler's choice (wait, or end the process: kTerminando)
// and a thread's taking a hold are ordered one way or the other: a thread
// that comes too late waits for the end instead of starting a change.
constexpr int kPendente = 1 << 29, kTerminando = 1 << 30, kContagem = kPendente - 1;
std::atomic<int> retencao{0};
std::atomic<int> sinalPendente{0};

void aoSinalDeFim(int sinal) {
  int estado = retencao.load();
  for (;;) {
    if (estado & kContagem) {
      sinalPendente.store(sinal);
      if (retencao.compare_exchange_weak(estado, estado | kPendente)) return;
    } else if (retencao.compare_exchange_weak(estado, estado | kTerminando)) {
      break;
    }
  }
  removeTemporarios();
  ::signal(sinal, SIG_DFL);
  sigset_t este;
  sigemptyset(&este);
  sigaddset(&este, sinal);
  ::sigprocmask(SIG_UNBLOCK, &este, nullptr);
  ::raise(sinal);
}

// Once per process, when the first output opens. A signal the caller chose
// to ignore (nohup) stays ignored. SIGXFSZ would kill the process at a
// file-size limit with the temporary left; ignored, write returns EFBIG.
void preparaSinais() {
  static std::once_flag uma;
  std::call_once(uma, [] {
    ::signal(SIGXFSZ, SIG_IGN);
    struct sigaction acao {};
    acao.sa_handler = aoSinalDeFim;
    sigemptyset(&acao.sa_mask);
    for (int s : kSinaisDeFim) sigaddset(&acao.sa_mask, s);
    for (int s : kSinaisDeFim) {
      struct sigaction anterior {};
      if (::sigaction(s, nullptr, &anterior) == 0 && anterior.sa_handler != SIG_IGN) ::sigaction(s, &acao, nullptr);
    }
  });
}

// Holds SIGINT, SIGTERM and SIGHUP back for its lifetime; one that came
// meanwhile is delivered when the last hold of any thread ends.
class SinaisRetidos {
 public:
  SinaisRetidos() {
    // The handler is removing the temporaries on another thread and will
    // end the process: a change begun now could be cut in half.
    if (retencao.fetch_add(1) & kTerminando)
      for (;;) ::pause();
  }
  ~SinaisRetidos() {
    const int antes = retencao.fetch_sub(1);
    if ((antes & kContagem) != 1 || !(antes & kPendente)) return;
    retencao.fetch_and(~kPendente);
    ::raise(sinalPendente.load());
  }
  SinaisRetidos(const SinaisRetidos&) = delete;
  SinaisRetidos& operator=(const SinaisRetidos&) = delete;
};

// "dir/sub/" for "dir/sub/a.xml", "" for "a.xml".
std::string pastaDe(const std::string& caminho) {
  const size_t barra = caminho.find_last_of('/');
  return barra == std::string::npos ? "" : caminho.substr(0, barra + 1);
}

// Follows `nome` through symbolic links to a path that is not one (and may
// not exist yet). False for a loop or an unreadable link.
bool segueLinks(const std::string& nome, std::string& alvo) {
  alvo = nome;
  for (int i = 0; i < kMaxLinks; ++i) {
    struct stat info {};
    if (::lstat(alvo.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return true;
    std::vector<char> texto(PATH_MAX);
    const ssize_t n = ::readlink(alvo.c_str(), texto.data(), texto.size());
    if (n <= 0 || static_cast<size_t>(n) >= texto.size()) return false;
    const std::string ligado(texto.data(), static_cast<size_t>(n));
    alvo = ligado[0] == '/' ? ligado : pastaDe(alvo) + ligado;
  }
  return false;
}

// One counter for every thread of the process: no two calls get one number.
std::string nomeTemporario() {
  static std::atomic<unsigned> contador{0};
  return "quivelar-" + std::to_string(::getpid()) + "-" + std::to_string(contador.fetch_add(1)) + ".tmp";
}

// Portuguese, unaccented, like every message of the program.
std::string motivo(int codigo) {
  switch (codigo) {
    case ENOSPC: return "disco cheio";
    case EFBIG: return "limite de tamanho de arquivo atingido";
    case EDQUOT: return "cota de disco esgotada";
    case EIO: return "erro de entrada e saida do dispositivo";
    case EROFS: return "sistema de arquivos somente leitura";
    case EPIPE: return "canal fechado pelo leitor";
    default: return "erro do sistema " + std::to_string(codigo);
  }
}

// fsync on what cannot be synced (a terminal, /dev/null, a FIFO, a file
// system without it) is no failure.
bool sincroniza(int fd) {
  return ::fsync(fd) == 0 || errno == EINVAL || errno == EROFS || errno == ENOTSUP;
}

}  // namespace

void removeTemporarios() {
  for (Vaga& v : vagas)
    if (v.estado.load(std::memory_order_acquire) == kPublicada) ::unlinkat(v.pasta, v.nome, 0);
}

SaidaSegura::SaidaSegura(std::string destino, std::string mensagemAbertura)
    : destino_(std::move(destino)), mensagemAbertura_(std::move(mensagemAbertura)) {
  preparaSinais();
  // stat follows every link, /proc's too (/dev/stdout leads to a pipe).
  struct stat info {};
  existia_ = ::stat(destino_.c_str(), &info) == 0;
  if (existia_ && S_ISDIR(info.st_mode)) erro(mensagemAbertura_, destino_);
  if (!segueLinks(destino_, alvo_)) erro(mensagemAbertura_, destino_);
  struct stat doAlvo {};
  const bool mesmoArquivo =
      ::stat(alvo_.c_str(), &doAlvo) == 0 && doAlvo.st_dev == info.st_dev && doAlvo.st_ino == info.st_ino;
  // Not a regular file, or one no name leads to (a /proc link to an open
  // file): written where it is, since it cannot be replaced. Opened on the
  // first write; a FIFO waits for its reader then.
  if (existia_ && (!S_ISREG(info.st_mode) || !mesmoArquivo)) {
    direto_ = true;
    alvo_ = destino_;
    temporario_ = destino_;
    return;
  }
  if (existia_) {
    modo_ = info.st_mode & 07777;
    dono_ = info.st_uid;
    grupo_ = info.st_gid;
  }
  const std::string pasta = pastaDe(alvo_);
  nomeAlvo_ = alvo_.substr(pasta.size());
  if (nomeAlvo_.empty()) erro(mensagemAbertura_, destino_);
  pasta_ = ::open(pasta.empty() ? "." : pasta.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (pasta_ < 0) erro(mensagemAbertura_, destino_);
  // A temporary left by a killed run of an earlier process with our id is
  // stepped over, never reused.
  {
    const SinaisRetidos retidos;
    for (int tentativa = 0; fd_ < 0 && tentativa < 100; ++tentativa) {
      nomeTemp_ = nomeTemporario();
      fd_ = ::openat(pasta_, nomeTemp_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd_ < 0 && errno != EEXIST) break;
    }
    if (fd_ >= 0) vaga_ = ocupaVaga(pasta_, nomeTemp_);
  }
  if (fd_ < 0) {
    ::close(pasta_);
    erro(mensagemAbertura_, destino_);
  }
  temporario_ = pasta + nomeTemp_;
}

SaidaSegura::~SaidaSegura() {
  if (fd_ >= 0) ::close(fd_);
  if (!direto_ && !confirmado_ && pasta_ >= 0) ::unlinkat(pasta_, nomeTemp_.c_str(), 0);
  liberaVaga(vaga_);
  if (pasta_ >= 0) ::close(pasta_);
}

void SaidaSegura::falhaGravacao(int codigo) const {
  erro("Erro: falha ao gravar ", destino_, ": " + motivo(codigo));
}

void SaidaSegura::escreve(const void* dados, size_t n) {
  const char* bytes = static_cast<const char*>(dados);
  if (buffer_.size() + n > kBloco) descarrega();
  if (n >= kBloco)
    escreveJa(bytes, n);
  else
    buffer_.append(bytes, n);
}

void SaidaSegura::descarrega() {
  escreveJa(buffer_.data(), buffer_.size());
  buffer_.clear();
}

void SaidaSegura::escreveJa(const char* p, size_t n) {
  if (n == 0) return;
  if (fd_ < 0 && direto_) {
    fd_ = ::open(alvo_.c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    if (fd_ < 0) erro(mensagemAbertura_, destino_);
  }
  if (fd_ < 0) falhaGravacao(EBADF);  // a write after confirma()
  while (n > 0) {
    const ssize_t k = ::write(fd_, p, n);
    if (k < 0 && errno == EINTR) continue;
    if (k <= 0) falhaGravacao(k < 0 ? errno : EIO);
    p += k;
    n -= static_cast<size_t>(k);
  }
}

// Everything that can fail short of the rename: after it, only the rename
// stands between the written bytes and the destination.
void SaidaSegura::preparaTroca() {
  descarrega();
  if (fd_ < 0) return;  // straight through and never opened: nothing written
  // The old file's mode, and its owner when root can give it; a file system
  // that keeps neither (FAT) is no reason to fail.
  if (!direto_ && existia_) {
    if (::geteuid() == 0) (void)!::fchown(fd_, dono_, grupo_);
    (void)!::fchmod(fd_, modo_);
  }
  if (!sincroniza(fd_)) falhaGravacao(errno);
  const int fd = fd_;
  fd_ = -1;
  if (::close(fd) != 0) falhaGravacao(errno);
}

void SaidaSegura::confirma() { confirmaJuntas({this}); }

void SaidaSegura::confirmaJuntas(std::initializer_list<SaidaSegura*> lista) {
  const std::vector<SaidaSegura*> saidas(lista);
  for (SaidaSegura* s : saidas) s->preparaTroca();
  const SinaisRetidos retidos;
  // Each old file stays reachable under a spare name until every rename has
  // succeeded: a hard link, so nothing is copied.
  enum Volta { kApaga, kRestaura, kSemVolta };
  std::vector<Volta> voltas(saidas.size(), kSemVolta);
  std::vector<std::string> copias(saidas.size());
  for (size_t i = 0; i < saidas.size(); ++i) {
    const SaidaSegura& s = *saidas[i];
    if (s.direto_) continue;
    copias[i] = nomeTemporario();
    if (::linkat(s.pasta_, s.nomeAlvo_.c_str(), s.pasta_, copias[i].c_str(), 0) == 0)
      voltas[i] = kRestaura;
    else if (errno == ENOENT)
      voltas[i] = kApaga;  // no old file: undoing is removing the new one
    // otherwise a file system without hard links: this one cannot be undone
  }
  const auto apagaCopias = [&] {
    for (size_t i = 0; i < saidas.size(); ++i)
      if (voltas[i] == kRestaura) ::unlinkat(saidas[i]->pasta_, copias[i].c_str(), 0);
  };
  for (size_t feitas = 0; feitas < saidas.size(); ++feitas) {
    const SaidaSegura& s = *saidas[feitas];
    if (s.direto_ || ::renameat(s.pasta_, s.nomeTemp_.c_str(), s.pasta_, s.nomeAlvo_.c_str()) == 0) continue;
    for (size_t i = 0; i < feitas; ++i) {
      const SaidaSegura& t = *saidas[i];
      if (voltas[i] == kApaga) ::unlinkat(t.pasta_, t.nomeAlvo_.c_str(), 0);
      if (voltas[i] != kRestaura) continue;
      // Kept either way: the destination again, or the old contents under
      // the spare name if even that rename fails.
      ::renameat(t.pasta_, copias[i].c_str(), t.pasta_, t.nomeAlvo_.c_str());
      voltas[i] = kSemVolta;
    }
    apagaCopias();
    erro(s.mensagemAbertura_, s.destino_);
  }
  apagaCopias();
  for (SaidaSegura* s : saidas) {
    s->confirmado_ = true;
    liberaVaga(s->vaga_);
  }
  // The renames themselves are durable only once the folders are.
  for (SaidaSegura* s : saidas)
    if (!s->direto_ && !sincroniza(s->pasta_)) s->falhaGravacao(errno);
}

namespace {

// The file a name leads to, as a comparable text; empty for a device or a
// FIFO, which may be named twice.
std::string identidade(const std::string& nome) {
  struct stat info {};
  if (::stat(nome.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) return "";
  std::string alvo;
  if (!segueLinks(nome, alvo)) return nome;
  const std::string pasta = pastaDe(alvo);
  char* real = ::realpath(pasta.empty() ? "." : pasta.c_str(), nullptr);
  if (!real) return alvo;
  const std::string resolvido = std::string(real) + "/" + alvo.substr(pasta.size());
  std::free(real);
  return resolvido;
}

}  // namespace

void exigeSaidasDistintas(std::initializer_list<std::string> nomes) {
  std::vector<std::string> vistos;
  for (const std::string& nome : nomes) {
    const std::string id = identidade(nome);
    for (const std::string& visto : vistos)
      if (!id.empty() && id == visto) erro("Erro: saidas com o mesmo nome ", nome);
    vistos.push_back(id);
  }
}

}  // namespace tvm
