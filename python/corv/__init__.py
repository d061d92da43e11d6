"""Corvantis hyperspectral processing library.

The library's classes and functions come from the compiled part, `corv._corv`,
and are used as `corv.<name>`; `corv.batch` runs commands over many files on
Dask (`python3 -m corv.batch --help`).
"""

from . import _corv
from ._corv import *  # noqa: F401,F403

__doc__ = _corv.__doc__ + "\n\n" + __doc__.split("\n\n", 1)[1]
__all__ = [name for name in dir(_corv) if not name.startswith("_")]

# Classes report themselves as corv.<name>, the name users write.
for _name in __all__:
    _value = getattr(_corv, _name)
    if isinstance(_value, type) and _value.__module__ == _corv.__name__:
        _value.__module__ = __name__
del _name, _value
