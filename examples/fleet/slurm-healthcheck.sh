#!/bin/sh
# HealthCheckProgram of Slurm: a quick check of the node, which drains it for a failure of the hardware
# and gives it back once it passes.
#
# Tried with Slurm 22.05. In slurm.conf:
#   HealthCheckProgram=/etc/slurm/slurm-healthcheck.sh
#   HealthCheckInterval=3600
#   HealthCheckNodeState=IDLE,CYCLE
#
# Slurm kills a check after 60 seconds, hence the limit; it starts the next one though the last still
# runs, which diagctl answers with the last result. It does not look at the exit status: --drain is
# what takes the node from its users, with a reason that "sinfo -R" shows. Only SLURMD_NODENAME and
# no search path are promised; where slurm.conf is not in its usual place, add --slurm-conf FILE.
PATH=$PATH:/usr/sbin:/usr/bin:/sbin:/bin
exec diagctl health --style slurm --drain --undrain-own --max-time 45s
