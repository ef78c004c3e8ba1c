#include "sweep/tarefas.hpp"

#include <opencv2/core.hpp>

#include <condition_variable>
#include <exception>
#include <algorithm>
#include <functional>
#include <mutex>
#include <queue>

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

void Tarefas::executa() {
  std::mutex m;
  std::condition_variable mudou;
  // Ready tasks, earliest added first.
  std::priority_queue<Id, std::vector<Id>, std::greater<Id>> prontas;
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
  cv::parallel_for_(cv::Range(0, workers), [&](const cv::Range& r) {
    for (int w = r.start; w < r.end; ++w) trabalha();
  }, workers);
  // Each worker returns only after its own task ends: nothing runs now.
  tarefas_.clear();
  if (falha) std::rethrow_exception(falha);
}

}  // namespace sweep
