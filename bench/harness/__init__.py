"""What bench.py is made of: the machine, the servers, the rounds, the report."""
