// What the host sets for its own process, and so for the simulators it forks.
#ifndef DEVHOST_APP_PROCESS_H
#define DEVHOST_APP_PROCESS_H

namespace devhost {

// Called by the host before it forks the simulators: at most two allocator
// arenas, and blocks from 128 KiB up always mapped on their own. Threads come
// and go in all three processes (a thread per HTTP and per control
// connection, FUSE workers with their large request buffers, held and
// delayed replies); with glibc's defaults each new thread could take another
// arena that keeps what was freed in it, and once a buffer of several MB (the
// journal's, the log's) had been freed the threshold for mapping a block on
// its own rose with it, so that the workers' buffers came from the heap and
// stayed there: resident memory crept up for as long as the host served.
void TuneAllocator();

// Waiting request heads cost a descriptor each: the soft limit is raised to
// the hard one (within reason) so that the intake's bound, not the process's,
// decides how many wait.
void RaiseDescriptorLimit();

}  // namespace devhost

#endif  // DEVHOST_APP_PROCESS_H
