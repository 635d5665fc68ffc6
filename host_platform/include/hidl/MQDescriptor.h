// Host stand-in: the vendor package uses no fast message queues.
#pragma once
