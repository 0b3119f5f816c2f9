"""The project's version, for the Python package and for CMake, which reads it from this file."""

__version__ = "0.1.0"
