#!/bin/sh
# Prolog of Slurm: refuses a job on a node whose last check has failed.
#
# Tried with Slurm 22.05. In slurm.conf:
#   Prolog=/etc/slurm/slurm-prolog.sh
#   PrologFlags=Alloc
#
# Jobs wait for a prolog, so nothing is tested here: the result is that of slurm-healthcheck.sh or of a
# timer, of the last 26 hours. A failure ends with 1; the node is drained with its reason before, since
# Slurm itself would only say "Prolog error". A result that is missing or old refuses no job.
PATH=$PATH:/usr/sbin:/usr/bin:/sbin:/bin
exec diagctl health --style slurm --cached 26h --drain
