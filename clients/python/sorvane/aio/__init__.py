"""The classes of this package for asyncio. They do the same as those for threads; what waits is awaited.

All methods and callbacks belong to the event loop in which the object was started.
"""

from sorvane.aio.client import Client
from sorvane.aio.registration import Registration
from sorvane.aio.watch import Watch

__all__ = ["Client", "Registration", "Watch"]
