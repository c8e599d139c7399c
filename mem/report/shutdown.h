// The end of the tracker. The exported half is mem_shutdown_tbb_tracking.
#pragma once

// Shuts tracking down and frees the tables, unless another thread may still be in the tracker's code: then
// they are left to the system. From then on the tracker has ended for good.
void mem_cleanup_tbb_tracking();

// In a forked child: tracking belongs to the parent. Takes no lock and frees nothing, since another thread of
// the parent may have been anywhere at the fork.
void mem_abandon_tracking_in_child();
