#include "runner/batch.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <map>
#include <mutex>
#include <shared_mutex>
#include <thread>

#include "host/host.h"
#include "runner/interval_inference.h"

namespace esf::runner {
namespace {

// Outcomes wait here until every series before them has been handed on.
// One thread at a time hands them on, outside the lock, so that a worker
// that finishes a series while another thread writes earlier ones leaves it
// waiting and goes on to its next series.  A worker runs a series only once
// it is fewer than `window` series past the next to be handed on, so that
// fewer than `window` outcomes ever wait, however long one series takes.
class InOrder {
 public:
  InOrder(const std::function<void(SeriesOutcome&)>& take, std::size_t window) : take_(take), window_(window) {}

  // Waits until series `ordinal` may run (or the run is stopping).
  void wait_turn(std::size_t ordinal) {
    std::unique_lock lock(mutex_);
    turn_.wait(lock, [&] { return error_ != nullptr || ordinal < next_ + window_; });
  }

  void deliver(SeriesOutcome&& o) {
    std::unique_lock lock(mutex_);
    if (error_) return;
    waiting_.emplace(o.ordinal, std::move(o));
    if (handing_) return;  // the thread handing them on takes this one too
    handing_ = true;
    while (!error_ && !waiting_.empty() && waiting_.begin()->first == next_) {
      SeriesOutcome first = std::move(waiting_.begin()->second);
      waiting_.erase(waiting_.begin());
      lock.unlock();
      try {
        if (!first.ok) failed_.fetch_add(1, std::memory_order_relaxed);
        take_(first);
      } catch (...) {
        lock.lock();
        error_ = std::current_exception();
        waiting_.clear();
        break;
      }
      lock.lock();
      handed_.store(++next_, std::memory_order_relaxed);
    }
    handing_ = false;
    lock.unlock();
    turn_.notify_all();
  }
  bool failed_to_take() {
    std::lock_guard lock(mutex_);
    return error_ != nullptr;
  }
  void rethrow() {
    std::lock_guard lock(mutex_);
    if (error_) std::rethrow_exception(error_);
  }
  std::size_t handed() const { return handed_.load(std::memory_order_relaxed); }
  std::size_t failed() const { return failed_.load(std::memory_order_relaxed); }

 private:
  const std::function<void(SeriesOutcome&)>& take_;
  const std::size_t window_;
  std::mutex mutex_;
  std::condition_variable turn_;
  std::map<std::size_t, SeriesOutcome> waiting_;
  std::size_t next_ = 0;
  bool handing_ = false;  // a thread is handing outcomes on
  std::atomic<std::size_t> handed_{0};
  std::atomic<std::size_t> failed_{0};
  std::exception_ptr error_;
};

// Series read and waiting for a worker.  The reader waits while it is full,
// so that memory holds a bounded number of series, until the workers have
// taken half of them: it then reads a run of series at once instead of
// waking for each one taken, which on a machine with no spare core would take
// the core of a worker every time.
class Queue {
 public:
  explicit Queue(std::size_t capacity) : capacity_(capacity) {}
  // False when the run is stopping.
  bool push(RawSeries&& s) {
    std::unique_lock lock(mutex_);
    if (items_.size() >= capacity_) space_.wait(lock, [&] { return stop_ || items_.size() <= capacity_ / 2; });
    if (stop_) return false;
    items_.push_back(std::move(s));
    lock.unlock();
    ready_.notify_one();
    return true;
  }
  std::optional<RawSeries> pop() {
    std::unique_lock lock(mutex_);
    ready_.wait(lock, [&] { return stop_ || closed_ || !items_.empty(); });
    if (stop_ || items_.empty()) return std::nullopt;
    RawSeries s = std::move(items_.front());
    items_.pop_front();
    const bool drained = items_.size() == capacity_ / 2;
    lock.unlock();
    if (drained) space_.notify_one();
    return s;
  }
  void close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    ready_.notify_all();
  }
  void stop() {
    std::lock_guard lock(mutex_);
    stop_ = true;
    ready_.notify_all();
    space_.notify_all();
  }

 private:
  std::size_t capacity_;
  std::mutex mutex_;
  std::condition_variable ready_, space_;
  std::deque<RawSeries> items_;
  bool closed_ = false;
  bool stop_ = false;
};

// Plans for the intervals series' time IDs fit, each made once and shared
// by the threads.
class IntervalPlans {
 public:
  IntervalPlans(const Runner& runner, const Plan& plan) : runner_(runner), plan_(plan) {}
  const Plan& of(const std::string& interval) {
    {
      std::shared_lock lock(mutex_);
      if (auto it = plans_.find(interval); it != plans_.end()) return it->second;
    }
    std::lock_guard lock(mutex_);
    auto it = plans_.find(interval);
    if (it == plans_.end()) {
      ModelOptions o = plan_.options;
      o.interval = interval;
      it = plans_.emplace(interval, runner_.plan(o, plan_.forecast)).first;
      it->second.timed = plan_.timed;
    }
    return it->second;
  }

 private:
  const Runner& runner_;
  const Plan& plan_;
  std::shared_mutex mutex_;
  std::map<std::string, Plan> plans_;  // nodes stay put: references to them hold
};

SeriesOutcome run_series(const Runner& runner, const Plan& given, IntervalPlans& plans, const std::string& path,
                         RawSeries&& raw, const SavedModel* saved) {
  SeriesOutcome o;
  o.ordinal = raw.ordinal;
  o.key = std::move(raw.key);
  try {
    const double t0 = given.timed ? thread_cpu_seconds() : 0.0;
    const Plan* plan = &given;
    CsvSeries series;
    if (given.interval_token.empty()) {
      TimeUnits units = TimeUnits::kDate;
      series = read_in_any_units([&](TimeUnits u) { return parse_raw_series(raw, path, u); }, &units);
      const Inferred found = infer_interval(runner.loader(), series, units);
      if (found.interval.empty()) throw RunError(found.message);
      plan = &plans.of(found.interval);
      if (plan->units != units) series = parse_raw_series(raw, path, plan->units);
    } else {
      series = parse_raw_series(raw, path, plan->units);
    }
    o.interval = plan->interval_token;
    raw = RawSeries{};
    const double t1 = given.timed ? thread_cpu_seconds() : 0.0;
    o.read_seconds = t1 - t0;
    if (plan->forecast) {
      o.result = runner.forecast(*plan, series, saved);
    } else {
      o.result.fit = runner.fit(*plan, series);
      o.result.fitted = true;
    }
    o.run_seconds = given.timed ? thread_cpu_seconds() - t1 : 0.0;
    o.ok = true;
  } catch (const RunError& e) {
    o.reason = e.what();
    o.return_code = e.return_code();
  } catch (const std::exception& e) {
    o.reason = e.what();
  }
  return o;
}

}  // namespace

std::size_t run_batch(const Runner& runner, const Plan& plan, const SeriesTable& table, const BatchOptions& options,
                      const std::function<void(SeriesOutcome&)>& take) {
  const std::string& path = table.shape().path;
  const int threads = std::max(1, options.threads);
  InOrder in_order(take, options.window > 0 ? options.window : 8 * static_cast<std::size_t>(threads));
  IntervalPlans plans(runner, plan);
  auto finish = [&](RawSeries&& raw) {
    SeriesOutcome o = run_series(runner, plan, plans, path, std::move(raw), options.saved);
    if (options.prepare) options.prepare(o);
    in_order.deliver(std::move(o));
  };
  auto report = [&] {
    if (options.progress) options.progress(in_order.handed());
  };

  if (threads == 1) {
    table.read([&](RawSeries&& raw) {
      if (in_order.failed_to_take()) return;
      finish(std::move(raw));
      report();
    });
    in_order.rethrow();
    return in_order.failed();
  }

  Queue queue(static_cast<std::size_t>(threads) * 8);
  std::vector<std::thread> workers;
  for (int i = 0; i < threads; ++i) {
    workers.emplace_back([&] {
      while (std::optional<RawSeries> raw = queue.pop()) {
        in_order.wait_turn(raw->ordinal);
        finish(std::move(*raw));
      }
      // The thread's task ends with it: its slots, its custom-interval manager.
      host::end_task();
    });
  }
  std::exception_ptr read_error;
  try {
    table.read([&](RawSeries&& raw) {
      if (in_order.failed_to_take() || !queue.push(std::move(raw))) return;
      report();
    });
    queue.close();
  } catch (...) {
    read_error = std::current_exception();
    queue.stop();
  }
  for (std::thread& w : workers) w.join();
  if (read_error) std::rethrow_exception(read_error);
  in_order.rethrow();
  report();
  return in_order.failed();
}

}  // namespace esf::runner
