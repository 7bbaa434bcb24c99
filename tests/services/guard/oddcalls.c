/*
 * Deletes files in unusual circumstances: oddcalls CASE PATH. Ends with 0 if the process noticed
 * nothing of being watched: results, errno, descriptors, signals as without the library.
 */
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#define CHECK(condition)                                                                           \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            fprintf(stderr, "line %d: %s (errno %d)\n", __LINE__, #condition, errno);              \
            _exit(1);                                                                              \
        }                                                                                          \
    } while (0)

static int exists(const char *path)
{
    struct stat status;
    return lstat(path, &status) == 0;
}

static int countDescriptors(void)
{
    DIR *dir = opendir("/proc/self/fd");
    int count = 0;
    CHECK(dir);
    while (readdir(dir))
        ++count;
    closedir(dir);
    return count;
}

/* The compiler must not see that a path is null. */
static const char *volatile s_noPath;

static void checkErrno(const char *path)
{
    errno = EXDEV;
    CHECK(unlink(path) == 0 && errno == EXDEV);
    CHECK(unlink(path) == -1 && errno == ENOENT);
    CHECK(unlinkat(-1, "x.txt", 0) == -1 && errno == EBADF);
    CHECK(unlinkat(AT_FDCWD, path, 1 << 30) == -1 && errno == EINVAL);
    CHECK(unlink(s_noPath) == -1 && errno == EFAULT);
    CHECK(unlink("") == -1 && errno == ENOENT);
    CHECK(remove("/proc/nothing.txt") == -1 && errno == ENOENT);
    CHECK(unlink("/dev/null/x.txt") == -1 && errno == ENOTDIR);
    char name[8192];
    memset(name, 'a', sizeof(name));
    strcpy(name + sizeof(name) - 5, ".txt");
    CHECK(unlink(name) == -1 && errno == ENAMETOOLONG);
    name[300] = '\0';
    strcpy(name + 296, ".txt");
    CHECK(unlink(name) == -1 && errno == ENAMETOOLONG);
}

/* Files "<path>-<i>-<j>.txt" exist for 8 threads and 50 files each. */
static const char *s_prefix;

static void *removeMany(void *thread)
{
    char path[4096];
    for (int i = 0; i < 50; ++i) {
        snprintf(path, sizeof(path), "%s-%d-%d.txt", s_prefix, (int)(intptr_t)thread, i);
        CHECK(unlink(path) == 0);
    }
    return NULL;
}

static void checkThreads(const char *prefix)
{
    pthread_t threads[8];
    s_prefix = prefix;
    for (intptr_t i = 0; i < 8; ++i)
        CHECK(pthread_create(&threads[i], NULL, removeMany, (void *)i) == 0);
    for (int i = 0; i < 8; ++i)
        CHECK(pthread_join(threads[i], NULL) == 0);
}

static volatile sig_atomic_t s_alarms;

static void countAlarm(int signal)
{
    (void)signal;
    ++s_alarms;
    /* Deleting is allowed in a signal handler. */
    unlink("/nothing/here.txt");
}

/* The same while a signal arrives every 50 µs. */
static void checkSignals(const char *prefix)
{
    struct sigaction action = {0};
    action.sa_handler = countAlarm;
    CHECK(sigaction(SIGALRM, &action, NULL) == 0);
    const struct itimerval often = {{0, 50}, {0, 50}};
    CHECK(setitimer(ITIMER_REAL, &often, NULL) == 0);
    checkThreads(prefix);
    const struct itimerval never = {{0, 0}, {0, 0}};
    CHECK(setitimer(ITIMER_REAL, &never, NULL) == 0);
    CHECK(s_alarms > 0);
}

static void waitForChild(pid_t child)
{
    int status = -1;
    CHECK(child > 0 && waitpid(child, &status, 0) == child);
    CHECK(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

/* Children of a process with threads that delete meanwhile. */
static void checkFork(const char *prefix)
{
    pthread_t threads[8];
    s_prefix = prefix;
    for (intptr_t i = 1; i < 8; ++i)
        CHECK(pthread_create(&threads[i], NULL, removeMany, (void *)i) == 0);
    char path[4096];
    for (int i = 0; i < 50; ++i) {
        snprintf(path, sizeof(path), "%s-0-%d.txt", prefix, i);
        const pid_t child = fork();
        if (child == 0)
            _exit(unlink(path) == 0 ? 0 : 1);
        waitForChild(child);
    }
    for (int i = 1; i < 8; ++i)
        CHECK(pthread_join(threads[i], NULL) == 0);
}

static void checkVfork(const char *path)
{
    const pid_t child = vfork();
    if (child == 0)
        _exit(unlink(path) == 0 ? 0 : 1);
    waitForChild(child);
    CHECK(!exists(path));
}

static void *removeCancelled(void *path)
{
    CHECK(pthread_cancel(pthread_self()) == 0); /* Pending from here on. */
    CHECK(unlink(path) == 0 && !exists(path));
    pthread_testcancel();
    return NULL;
}

static void checkCancel(const char *path)
{
    pthread_t thread;
    void *result = NULL;
    CHECK(pthread_create(&thread, NULL, removeCancelled, (void *)path) == 0);
    CHECK(pthread_join(thread, &result) == 0 && result == PTHREAD_CANCELED);
}

static void checkClosed(const char *path)
{
    /* Whoever runs the tests may have left more than the three open. */
    const int third = fcntl(3, F_GETFD);
    CHECK(close(0) == 0 && close(1) == 0 && close(2) == 0);
    const int result = unlink(path);
    const int isClosed = fcntl(0, F_GETFD) == -1 && fcntl(1, F_GETFD) == -1 &&
                         fcntl(2, F_GETFD) == -1 && fcntl(3, F_GETFD) == third;
    _exit(result == 0 && isClosed && !exists(path) ? 0 : 1);
}

static void checkLimit(const char *path)
{
    const struct rlimit none = {3, 3};
    CHECK(setrlimit(RLIMIT_NOFILE, &none) == 0);
    CHECK(unlink(path) == 0 && !exists(path));
}

#define STACK_SIZE (256 * 1024)

static void *removeOnce(void *path)
{
    CHECK(unlink(path) == 0);
    return NULL;
}

/* Bytes of a stack that the thread's work has touched. */
static size_t stackUsedBy(void *(*work)(void *), void *argument)
{
    unsigned char *stack =
        mmap(NULL, STACK_SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    CHECK(stack != MAP_FAILED);
    memset(stack, 0xa5, STACK_SIZE);
    pthread_attr_t attributes;
    pthread_t thread;
    CHECK(pthread_attr_init(&attributes) == 0 &&
          pthread_attr_setstack(&attributes, stack, STACK_SIZE) == 0 &&
          pthread_create(&thread, &attributes, work, argument) == 0 &&
          pthread_join(thread, NULL) == 0);
    size_t untouched = 0;
    while (untouched < STACK_SIZE && stack[untouched] == 0xa5)
        ++untouched;
    return STACK_SIZE - untouched;
}

static void *doNothing(void *argument)
{
    return argument;
}

static void checkStack(const char *path)
{
    const size_t used = stackUsedBy(removeOnce, (void *)path) - stackUsedBy(doNothing, NULL);
    if (used > 16 * 1024) {
        fprintf(stderr, "%zu bytes of stack\n", used);
        _exit(1);
    }
}

/* A sandbox that kills for what it does not expect: no sockets, no links. */
static void enterSandbox(void)
{
    const struct sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_socket, 3, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_linkat, 2, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_symlinkat, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const struct sock_fprog program = {sizeof(filter) / sizeof(filter[0]),
                                       (struct sock_filter *)filter};
    CHECK(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0);
    CHECK(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0);
}

static void checkSandbox(const char *path)
{
    enterSandbox();
    CHECK(unlink(path) == 0 && !exists(path));
}

static void checkChroot(const char *path)
{
    char dir[4096];
    snprintf(dir, sizeof(dir), "%s", path);
    *strrchr(dir, '/') = '\0';
    if (geteuid() != 0)
        CHECK(unshare(CLONE_NEWUSER) == 0);
    CHECK(chroot(dir) == 0 && chdir("/") == 0);
    CHECK(unlink(path + strlen(dir)) == 0 && !exists(path + strlen(dir)));
}

static void checkUserNamespace(const char *path)
{
    char line[64];
    snprintf(line, sizeof(line), "1000 %u 1\n", (unsigned)geteuid());
    CHECK(unshare(CLONE_NEWUSER) == 0);
    const int map = open("/proc/self/uid_map", O_WRONLY);
    CHECK(map >= 0 && write(map, line, strlen(line)) == (ssize_t)strlen(line) && close(map) == 0);
    CHECK(geteuid() == 1000);
    CHECK(unlink(path) == 0 && !exists(path));
}

static void checkMountNamespace(const char *path)
{
    CHECK(unshare(CLONE_NEWNS | (geteuid() == 0 ? 0 : CLONE_NEWUSER)) == 0);
    CHECK(unlink(path) == 0 && !exists(path));
}

/* A server that acts for one user after another. */
static void checkSwitching(const char *prefix)
{
    char path[4096];
    for (int i = 0; i < 50; ++i) {
        snprintf(path, sizeof(path), "%s-0-%d.txt", prefix, i);
        for (uid_t uid = 20000; uid < 20003; ++uid) {
            CHECK(seteuid(uid) == 0);
            CHECK(unlink(path) == -1 && errno == EACCES);
            CHECK(seteuid(0) == 0);
        }
        CHECK(unlink(path) == 0);
    }
}

int main(int argc, char *argv[])
{
    static const struct
    {
        const char *name;
        void (*check)(const char *);
    } cases[] = {{"errno", checkErrno},
                 {"threads", checkThreads},
                 {"signals", checkSignals},
                 {"fork", checkFork},
                 {"vfork", checkVfork},
                 {"cancel", checkCancel},
                 {"closed", checkClosed},
                 {"limit", checkLimit},
                 {"stack", checkStack},
                 {"sandbox", checkSandbox},
                 {"chroot", checkChroot},
                 {"usernamespace", checkUserNamespace},
                 {"mountnamespace", checkMountNamespace},
                 {"switching", checkSwitching}};
    CHECK(argc == 3);
    const int before = countDescriptors();
    for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
        if (strcmp(argv[1], cases[i].name) != 0)
            continue;
        cases[i].check(argv[2]);
        /* A sandboxed or confined process cannot look any more. */
        if (strcmp(argv[1], "limit") != 0 && strcmp(argv[1], "chroot") != 0)
            CHECK(countDescriptors() == before);
        return 0;
    }
    fprintf(stderr, "no such case\n");
    return 2;
}
