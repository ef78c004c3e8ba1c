// Built into the ThreadSanitizer build only (make tsan), linked into every
// executable. Debian's OpenCV runs cv::parallel_for_ on TBB, whose hand-offs
// (its own atomics and futexes, not instrumented) ThreadSanitizer cannot see:
// it reports every row a loop body writes and the caller reads afterwards.
// Here OpenCV's loops run on threads of our own, started and joined per loop,
// so the reports that remain are about the code, not about the pool. The
// thread count and its setting behave as with TBB; a stripe's exception is
// caught by OpenCV's wrapper around the body and rethrown after the loop.
#include <opencv2/core.hpp>
#include <opencv2/core/parallel/parallel_backend.hpp>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace {

thread_local int indiceDaThread = 0;

class ParaleloVisivel : public cv::parallel::ParallelForAPI {
 public:
  void parallel_for(int faixas, FN_parallel_for_body_cb_t corpo, void* dados) override {
    std::atomic<int> proxima{0};
    const auto trabalha = [&](int indice) {
      indiceDaThread = indice;
      for (int i; (i = proxima.fetch_add(1)) < faixas;) corpo(i, i + 1, dados);
    };
    std::vector<std::thread> outras;
    for (int w = 1; w < std::min(threads_.load(), faixas); ++w) outras.emplace_back(trabalha, w);
    trabalha(0);
    for (std::thread& t : outras) t.join();
  }
  int getThreadNum() const override { return indiceDaThread; }
  int getNumThreads() const override { return threads_; }
  int setNumThreads(int n) override { return threads_.exchange(std::max(1, n)); }
  const char* getName() const override { return "paralelo_visivel"; }

 private:
  std::atomic<int> threads_{1};
};

// Before main, with no other thread running, as OpenCV asks; it passes on
// the default thread count.
const bool instalado = [] {
  cv::parallel::setParallelForBackend(std::make_shared<ParaleloVisivel>());
  return true;
}();

}  // namespace
