"""Measures the product beside the programs that its users would reach for
instead, in one run, and writes down the ratios."""
