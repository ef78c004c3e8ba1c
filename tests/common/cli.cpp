#include "tests/common/cli.hpp"
#include "formats/match_file.hpp"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cctype>
#include <stdexcept>
#include <thread>

namespace teste {

static std::string leTudo(int fd) {
  std::string t;
  char buf[4096];
  for (ssize_t n; (n = ::pread(fd, buf, sizeof buf, static_cast<off_t>(t.size()))) > 0;) t.append(buf, size_t(n));
  return t;
}

Processo::Processo(const std::vector<std::string>& args, const std::string& pasta,
                   const std::map<std::string, std::string>& ambiente) {
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  out_ = ::memfd_create("out", MFD_CLOEXEC);
  err_ = ::memfd_create("err", MFD_CLOEXEC);
  if (out_ < 0 || err_ < 0 || (pid_ = ::fork()) < 0) throw std::runtime_error("memfd/fork");
  if (pid_ > 0) return;
  ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
  ::dup2(out_, STDOUT_FILENO);
  ::dup2(err_, STDERR_FILENO);
  if (!pasta.empty() && ::chdir(pasta.c_str()) != 0) ::_exit(126);
  for (const auto& [nome, valor] : ambiente)
    valor.empty() ? ::unsetenv(nome.c_str()) : ::setenv(nome.c_str(), valor.c_str(), 1);
  ::execvp(argv[0], argv.data());
  ::_exit(127);
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
