import type {Disk, System} from '../../api/types';
import {formatBytes, formatNumber} from '../../state/format';
import {texts} from '../../texts';

/** What is wrong with the machine, and what helps. */
export interface Warning {
  isSerious: boolean;
  text: string;
  remedy: string;
}

/** From where on something is worth a look, and from where on streams suffer. */
const limits = {
  diskFreeShare: {notable: 0.1, serious: 0.03},
  memoryAvailableShare: {notable: 0.1, serious: 0.04},
  loadOfProcessor: {notable: 1, serious: 2},
  loopLagMilliseconds: {notable: 100, serious: 1000},
  descriptorsShare: {notable: 0.8, serious: 0.95},
};

const words = texts.system.warning;
const percent = (share: number) => formatNumber(share * 100, share < 0.1 ? 1 : 0);

function warnOfDisk(name: 'hls' | 'recordings', disk: Disk): Warning[] {
  if (disk.error) return [{isSerious: true, text: words.diskSilent(disk.directory, disk.error), remedy: words.diskSilentRemedy}];
  if (!disk.total_bytes || disk.free_bytes === null) return [];
  const share = disk.free_bytes / disk.total_bytes;
  const {notable, serious} = limits.diskFreeShare;
  if (share > notable) return [];
  const text = words.disk(disk.directory, formatBytes(disk.free_bytes), percent(share));
  return [{isSerious: share <= serious, text, remedy: words.diskRemedy[name]}];
}

function warnOfMemory({total_bytes: total, available_bytes: available}: System['memory']): Warning[] {
  if (!total || available === null) return [];
  const share = available / total;
  const {notable, serious} = limits.memoryAvailableShare;
  if (share > notable) return [];
  return [
    {isSerious: share <= serious, text: words.memory(formatBytes(available), percent(share)), remedy: words.memoryRemedy},
  ];
}

function warnOfLoad({count, load}: System['processors']): Warning[] {
  const fiveMinutes = load?.[1] ?? 0;
  const {notable, serious} = limits.loadOfProcessor;
  if (fiveMinutes < notable * count) return [];
  const text = words.load(formatNumber(fiveMinutes, 1), count);
  return [{isSerious: fiveMinutes >= serious * count, text, remedy: words.loadRemedy}];
}

function warnOfLoop({lag_ms: lag}: System['loop']): Warning[] {
  const {notable, serious} = limits.loopLagMilliseconds;
  if (lag < notable) return [];
  return [{isSerious: lag >= serious, text: words.loop(formatNumber(lag, 0, 'ms')), remedy: words.loopRemedy}];
}

function warnOfDescriptors({open, limit}: System['descriptors']): Warning[] {
  const {notable, serious} = limits.descriptorsShare;
  if (open === null || open < notable * limit) return [];
  const text = words.descriptors(open, limit);
  return [{isSerious: open >= serious * limit, text, remedy: words.descriptorsRemedy}];
}

/** The warnings that the figures call for, the serious ones first. */
export function findWarnings(system: System): Warning[] {
  const {disks, memory, processors, loop, descriptors, versions} = system;
  const isOneDisk = disks.hls.free_bytes !== null && disks.hls.free_bytes === disks.recordings.free_bytes;
  const found = [
    ...(versions.ffmpeg ? [] : [{isSerious: true, text: words.noFfmpeg, remedy: words.noFfmpegRemedy}]),
    ...warnOfDisk('hls', disks.hls),
    // Often one disk: once is enough.
    ...(isOneDisk ? [] : warnOfDisk('recordings', disks.recordings)),
    ...warnOfMemory(memory),
    ...warnOfLoad(processors),
    ...warnOfLoop(loop),
    ...warnOfDescriptors(descriptors),
  ];
  return found.sort((one, other) => Number(other.isSerious) - Number(one.isSerious));
}
