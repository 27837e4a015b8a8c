"""Names for annotations that every supported Python knows at run time too, so that `typing.get_type_hints` works."""

from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    from typing_extensions import Self
else:
    try:
        from typing import Self
    except ImportError:  # before Python 3.11
        Self = Any

__all__ = ["Self"]
