#include "sweep/tarefas.hpp"

#include <opencv2/core.hpp>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <queue>
#include <system_error>
#include <thread>

namespace sweep {

Tarefas::Id Tarefas::adiciona(std::function<void()> f, const std::vector<Id>& antes) {
  const Id id = static_cast<Id>(tarefas_.size());
  tarefas_.push_back({std::move(f), 0, {}});
  for (Id a : antes) {
    CV_Assert(a >= 0 && a < id);
    tarefas_[a].depois.push_back(id);
    ++tarefas_[id].faltam;
  }
  return id;
}

namespace {

// OpenCV's pool at one thread for a scope: its threads would only compete
// with the workers for the cores. (When the workers ran on that pool, OpenCV
// ran a loop nested in them serially for the same reason.)
class PoolDoOpenCVEmUm {
 public:
  PoolDoOpenCVEmUm() { cv::setNumThreads(1); }
  ~PoolDoOpenCVEmUm() { cv::setNumThreads(antes_); }
  PoolDoOpenCVEmUm(const PoolDoOpenCVEmUm&) = delete;
  PoolDoOpenCVEmUm& operator=(const PoolDoOpenCVEmUm&) = delete;

 private:
  const int antes_ = cv::getNumThreads();
};

}  // namespace

void Tarefas::executa() {
  std::mutex m;
  std::condition_variable mudou;
  // Ready tasks, earliest added first; room for all of them from the start,
  // so that a worker cannot fail outside a task.
  std::vector<Id> espaco;
  espaco.reserve(tarefas_.size());
  std::priority_queue<Id, std::vector<Id>, std::greater<Id>> prontas(std::greater<Id>(), std::move(espaco));
  for (Id i = 0; i < static_cast<Id>(tarefas_.size()); ++i)
    if (tarefas_[i].faltam == 0) prontas.push(i);
  size_t feitas = 0;
  std::exception_ptr falha;

  const auto trabalha = [&] {
    std::unique_lock<std::mutex> trava(m);
    for (;;) {
      if (falha || feitas == tarefas_.size()) return;
      if (prontas.empty()) {
        // Something is running (or all would be done): its end brings more.
        mudou.wait(trava);
        continue;
      }
      const Id i = prontas.top();
      prontas.pop();
      trava.unlock();
      std::exception_ptr erro;
      try {
        tarefas_[i].f();
      } catch (...) {
        erro = std::current_exception();
      }
      trava.lock();
      ++feitas;
      if (erro && !falha) falha = erro;
      for (Id d : tarefas_[i].depois)
        if (--tarefas_[d].faltam == 0) prontas.push(d);
      mudou.notify_all();
    }
  };
  const int workers = std::max(1, cv::getNumThreads());
  {
    const PoolDoOpenCVEmUm umSo;
    std::vector<std::thread> outros;
    try {
      for (int w = 1; w < workers; ++w) outros.emplace_back(trabalha);
    } catch (const std::system_error&) {
      // A thread the system refuses: the ones running do its share.
    }
    trabalha();
    for (std::thread& t : outros) t.join();
  }
  // Each worker returns only after its own task ends: nothing runs now.
  tarefas_.clear();
  if (falha) std::rethrow_exception(falha);
}

}  // namespace sweep
