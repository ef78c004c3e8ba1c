#include "tests/common/cli.hpp"
#include "formats/match_file.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cctype>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace teste {

static std::string leTudo(int fd) {
  std::string t;
  char buf[4096];
  for (ssize_t n; (n = ::pread(fd, buf, sizeof buf, static_cast<off_t>(t.size()))) > 0;) t.append(buf, size_t(n));
  return t;
}

// posix_spawn, not fork: tests start programs from several threads at once,
// and a forked child of a threaded process may wait forever on a lock
// (the allocator's) that another thread held at the fork.
Processo::Processo(const std::vector<std::string>& args, const std::string& pasta,
                   const std::map<std::string, std::string>& ambiente) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<std::string> variaveis;
  for (char** v = environ; *v != nullptr; ++v) {
    const std::string var = *v;
    if (ambiente.count(var.substr(0, var.find('='))) == 0) variaveis.push_back(var);
  }
  for (const auto& [nome, valor] : ambiente)
    if (!valor.empty()) variaveis.push_back(nome + "=" + valor);
  std::vector<char*> envp;
  for (std::string& v : variaveis) envp.push_back(v.data());
  envp.push_back(nullptr);
  out_ = ::memfd_create("out", MFD_CLOEXEC);
  err_ = ::memfd_create("err", MFD_CLOEXEC);
  if (out_ < 0 || err_ < 0) throw std::runtime_error("memfd");
  posix_spawn_file_actions_t acoes;
  posix_spawn_file_actions_init(&acoes);
  posix_spawn_file_actions_addopen(&acoes, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&acoes, out_, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&acoes, err_, STDERR_FILENO);
  if (!pasta.empty()) posix_spawn_file_actions_addchdir_np(&acoes, pasta.c_str());
  const int falha = ::posix_spawnp(&pid_, argv[0], &acoes, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&acoes);
  if (falha != 0) {
    // As a shell reports a program it could not run.
    pid_ = -1;
    terminou_ = true;
    st_ = W_EXITCODE(127, 0);
  }
}

Processo::~Processo() {
  if (pid_ > 0) fim();
  ::close(out_);
  ::close(err_);
}

bool Processo::espera(double segundos) {
  const auto limite = std::chrono::steady_clock::now() + std::chrono::duration<double>(segundos);
  while (!terminou_ && !(terminou_ = ::wait4(pid_, &st_, WNOHANG, &uso_) == pid_)) {
    if (std::chrono::steady_clock::now() >= limite) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

Execucao Processo::lido() const { return {leTudo(out_), leTudo(err_)}; }

Execucao Processo::fim() {
  const bool estourou = !terminou_;
  if (estourou && ::kill(pid_, SIGKILL) == 0) terminou_ = ::wait4(pid_, &st_, 0, &uso_) == pid_;
  Execucao e = lido();
  e.estourou = estourou;
  e.picoKb = uso_.ru_maxrss;
  if (WIFEXITED(st_)) e.status = WEXITSTATUS(st_);
  if (WIFSIGNALED(st_)) e.sinal = WTERMSIG(st_);
  return e;
}

Execucao roda(const std::vector<std::string>& args, const std::string& pasta, double limiteSegundos,
              const std::map<std::string, std::string>& ambiente) {
  std::vector<std::string> linha = args;
  linha.insert(linha.begin(), QUIVELAR_BIN);
  Processo p(linha, pasta, ambiente);
  p.espera(limiteSegundos);
  return p.fim();
}

std::string rodaBem(const std::vector<std::string>& args, const std::string& pasta) {
  return rodaComAvisos(args, pasta, {});
}

std::string rodaComAvisos(const std::vector<std::string>& args, const std::string& pasta,
                          const std::vector<std::string>& avisos) {
  const Execucao e = roda(args, pasta);
  std::string esperado;
  for (const std::string& a : avisos) esperado += "Aviso: " + a + "\n";
  EXPECT_TRUE(e.status == 0 && e.err == esperado) << args[0] << ": status " << e.status << ", stderr " << e.err;
  return semTempo(e.out);
}

std::string semTempo(const std::string& out) {
  const size_t antes = out.size() < 2 ? std::string::npos : out.find_last_of('\n', out.size() - 2);
  const std::string linha = out.substr(antes == std::string::npos ? 0 : antes + 1), prefixo = "Tempo gasto=";
  const size_t n = linha.size();  // "Tempo gasto=" digits "." two digits "s\n"
  bool ok = linha.rfind(prefixo, 0) == 0 && n >= prefixo.size() + 6 && linha.compare(n - 2, 2, "s\n") == 0;
  for (size_t i = prefixo.size(); ok && i < n - 2; ++i)
    ok = i == n - 5 ? linha[i] == '.' : std::isdigit(static_cast<unsigned char>(linha[i])) != 0;
  return ok ? out.substr(0, out.size() - n) : out + "<sem linha de tempo>";
}

void escreveCasamentos(const std::string& arquivo, const std::vector<double>& desvios) {
  std::vector<cv::DMatch> m;
  std::vector<cv::KeyPoint> k1, k2;
  for (size_t i = 0; i < desvios.size(); ++i) {
    k1.emplace_back(20.0f + 10.0f * i, 30.0f, 8.0f);
    k2.emplace_back(20.0f + 10.0f * i + float(desvios[i]), 30.0f, 8.0f);
    m.emplace_back(int(i), int(i), float(i));
  }
  formats::impMatch(m, k1, k2, arquivo);
}

}  // namespace teste
