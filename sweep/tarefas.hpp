// Tasks with dependencies over a pool of threads. A sweep's stages are a
// graph (load image k, detect it, describe it, match pair 1-k, write the
// unit); run pass by pass, every pass ends waiting for its slowest task with
// the other cores idle. Here each worker takes, among the tasks whose
// dependencies are done, the one added first, so the next sequence's
// detections fill the gaps the current one leaves and results do not depend
// on the thread count (each task writes only its own slots).
#pragma once

#include <functional>
#include <vector>

namespace sweep {

class Tarefas {
 public:
  using Id = int;

  // f runs after every task in `antes` has run.
  Id adiciona(std::function<void()> f, const std::vector<Id>& antes = {});

  // Runs every task on cv::getNumThreads() workers (the caller and threads
  // of our own); with one, in the order added. A task's exception stops the
  // others from starting and is rethrown once the running ones end. While
  // they run, OpenCV's pool is held at one thread: the tasks are the
  // parallelism, and a parallel loop inside a task runs on its worker.
  void executa();

 private:
  struct Tarefa {
    std::function<void()> f;
    int faltam = 0;                // dependencies not yet done
    std::vector<Id> depois;        // tasks waiting for this one
  };
  std::vector<Tarefa> tarefas_;
};

}  // namespace sweep
