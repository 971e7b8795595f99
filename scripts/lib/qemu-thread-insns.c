/*
 * A qemu user-mode plugin that counts the guest instructions each thread
 * executes and prints, when the thread or the program ends,
 *   thread N COUNT
 * with threads numbered 0, 1, 2, ... in the order they started, and, at each
 * mark the program makes, the instructions of all its threads so far:
 *   mark ID TOTAL
 * A mark is a write of nothing to file descriptor -1 (it fails harmlessly,
 * and the plugin sees its arguments): write(-1, NULL, ID). Debian's
 * qemu-user supports plugins but ships none, so scripts/cross-arm64 builds
 * this one with the host's C compiler:
 *   cc -O2 -shared -fPIC -o thread-insns.so qemu-thread-insns.c
 *   qemu-aarch64 -plugin ./thread-insns.so -d plugin PROGRAM ...
 *
 * The few declarations below are the plugin interface of qemu 7.2 (API
 * version 1), spelled out here because no Debian package carries its header.
 * Counts are kept per virtual CPU, and in user mode each guest thread is one,
 * so every counter has a single writer.
 */
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

typedef uint64_t qemu_plugin_id_t;
typedef struct qemu_info_t qemu_info_t;
struct qemu_plugin_tb;
enum qemu_plugin_cb_flags { QEMU_PLUGIN_CB_NO_REGS };

void qemu_plugin_register_vcpu_init_cb(qemu_plugin_id_t id,
                                       void (*cb)(qemu_plugin_id_t, unsigned int));
void qemu_plugin_register_vcpu_exit_cb(qemu_plugin_id_t id,
                                       void (*cb)(qemu_plugin_id_t, unsigned int));
void qemu_plugin_register_vcpu_tb_trans_cb(qemu_plugin_id_t id,
                                           void (*cb)(qemu_plugin_id_t, struct qemu_plugin_tb*));
void qemu_plugin_register_vcpu_tb_exec_cb(struct qemu_plugin_tb* tb,
                                          void (*cb)(unsigned int, void*),
                                          enum qemu_plugin_cb_flags flags, void* userdata);
size_t qemu_plugin_tb_n_insns(const struct qemu_plugin_tb* tb);
void qemu_plugin_register_atexit_cb(qemu_plugin_id_t id, void (*cb)(qemu_plugin_id_t, void*),
                                    void* userdata);
void qemu_plugin_outs(const char* string);
typedef void (*qemu_plugin_vcpu_syscall_cb_t)(qemu_plugin_id_t id, unsigned int vcpu, int64_t num,
                                              uint64_t a1, uint64_t a2, uint64_t a3, uint64_t a4,
                                              uint64_t a5, uint64_t a6, uint64_t a7, uint64_t a8);
void qemu_plugin_register_vcpu_syscall_cb(qemu_plugin_id_t id, qemu_plugin_vcpu_syscall_cb_t cb);

#define EXPORT __attribute__((visibility("default")))
EXPORT int qemu_plugin_version = 1;

enum { kMaxCpus = 4096 };

static struct {
  uint64_t instructions;
  int thread; /* start order; -1 while the slot is unused */
} cpus[kMaxCpus];
static int threadsStarted;
static uint64_t endedInstructions; /* of threads that have ended */

/* The guest is arm64, whose write system call is number 64. */
enum { kWrite = 64 };

static void report(unsigned int cpu) {
  char line[64];
  if (cpu >= kMaxCpus || cpus[cpu].thread < 0) return;
  snprintf(line, sizeof line, "thread %d %llu\n", cpus[cpu].thread,
           (unsigned long long)cpus[cpu].instructions);
  qemu_plugin_outs(line);
  __atomic_fetch_add(&endedInstructions, cpus[cpu].instructions, __ATOMIC_SEQ_CST);
  cpus[cpu].thread = -1;
}

static void cpuStarted(qemu_plugin_id_t id, unsigned int cpu) {
  (void)id;
  if (cpu >= kMaxCpus) return;
  report(cpu); /* a slot reused before its exit was seen */
  cpus[cpu].instructions = 0;
  cpus[cpu].thread = __atomic_fetch_add(&threadsStarted, 1, __ATOMIC_SEQ_CST);
}

static void cpuEnded(qemu_plugin_id_t id, unsigned int cpu) {
  (void)id;
  report(cpu);
}

/* Other threads' counts are read while they may run; between the kernels a
 * program measures, they wait idle. */
static void syscallMade(qemu_plugin_id_t id, unsigned int cpu, int64_t num, uint64_t a1,
                        uint64_t a2, uint64_t a3, uint64_t a4, uint64_t a5, uint64_t a6,
                        uint64_t a7, uint64_t a8) {
  char line[64];
  uint64_t total = __atomic_load_n(&endedInstructions, __ATOMIC_SEQ_CST);
  (void)id, (void)cpu, (void)a4, (void)a5, (void)a6, (void)a7, (void)a8;
  /* The descriptor is an int: only its low 32 bits count. */
  if (num != kWrite || (uint32_t)a1 != UINT32_MAX || a2 != 0) return;
  for (unsigned int c = 0; c < kMaxCpus; ++c)
    if (cpus[c].thread >= 0) total += __atomic_load_n(&cpus[c].instructions, __ATOMIC_RELAXED);
  snprintf(line, sizeof line, "mark %llu %llu\n", (unsigned long long)a3,
           (unsigned long long)total);
  qemu_plugin_outs(line);
}

static void blockRan(unsigned int cpu, void* instructions) {
  if (cpu < kMaxCpus) cpus[cpu].instructions += (uintptr_t)instructions;
}

static void blockTranslated(qemu_plugin_id_t id, struct qemu_plugin_tb* tb) {
  (void)id;
  qemu_plugin_register_vcpu_tb_exec_cb(tb, blockRan, QEMU_PLUGIN_CB_NO_REGS,
                                       (void*)(uintptr_t)qemu_plugin_tb_n_insns(tb));
}

static void programEnded(qemu_plugin_id_t id, void* unused) {
  (void)id;
  (void)unused;
  for (unsigned int cpu = 0; cpu < kMaxCpus; ++cpu) report(cpu);
}

EXPORT int qemu_plugin_install(qemu_plugin_id_t id, const qemu_info_t* info, int argc,
                               char** argv) {
  (void)info;
  (void)argc;
  (void)argv;
  for (unsigned int cpu = 0; cpu < kMaxCpus; ++cpu) cpus[cpu].thread = -1;
  qemu_plugin_register_vcpu_init_cb(id, cpuStarted);
  qemu_plugin_register_vcpu_exit_cb(id, cpuEnded);
  qemu_plugin_register_vcpu_tb_trans_cb(id, blockTranslated);
  qemu_plugin_register_vcpu_syscall_cb(id, syscallMade);
  qemu_plugin_register_atexit_cb(id, programEnded, NULL);
  return 0;
}
