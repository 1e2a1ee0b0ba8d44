/* A process with many threads on small stacks for the capture tests: starts
 * the number of threads given, prints "ready" and its process ID, and ends
 * when its standard input is closed. */
#include <limits.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

static void *Idle(void *arg) {
   (void)arg;
   for (;;) {
      pause();
   }
   return NULL;
}

int main(int argc, char **argv) {
   long count = argc > 1 ? strtol(argv[1], NULL, 10) : 10000;
   pthread_attr_t attr;
   pthread_attr_init(&attr);
   pthread_attr_setstacksize(&attr, PTHREAD_STACK_MIN > 16384 ? PTHREAD_STACK_MIN : 16384);
   for (long i = 0; i < count; i++) {
      pthread_t t;
      if (pthread_create(&t, &attr, Idle, NULL) != 0) {
         fprintf(stderr, "thread_fixture: thread %ld could not be started\n", i);
         return 1;
      }
   }
   printf("ready %d\n", (int)getpid());
   fflush(stdout);
   char buf[64];
   while (read(0, buf, sizeof buf) > 0) {
   }
   return 0;
}
