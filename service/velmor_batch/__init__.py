"""velmor-batch: an HTTP/JSON service that queues optimisation requests, solves them with velmorpy
in local worker processes or on a Dask cluster, and keeps every request in a database.

Run it with ``velmor-batch serve``; see docs/batch-service.md. The HTTP, database and cluster
libraries are an optional extra of the package (``pip install .[batch]``); velmorpy never imports
this package.
"""

__all__ = ["__version__"]
__version__ = "10.0.3"
