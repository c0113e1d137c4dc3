// Samples of what each module or tag held.

const shownSeries = 10;

export class Timeline {
  constructor(json) {
    this.samples = json.samples;
    this.step = json.step; // samples taken for each one that is here
    this.allSamples = json.all_samples;
    this.phases = json.phases.map((phase) => ({
      ...phase,
      first: phase.first / this.step,
      count: phase.count / this.step,
    }));
    this.series = json.series.map(({ name, values }) => ({
      name,
      values: Float64Array.from(values),
    }));
    this.totals = new Float64Array(this.samples);
    for (const { values } of this.series)
      for (let sample = 0; sample < this.samples; ++sample) this.totals[sample] += values[sample];
  }

  /** The largest series, the largest first, and the rest as one. */
  get largest() {
    this.shown ??= this.#withRestSummed();
    return this.shown;
  }

  #withRestSummed() {
    const highest = new Map(
      this.series.map((one) => [one, one.values.reduce((a, b) => Math.max(a, b), 0)]),
    );
    const order = [...this.series].sort((a, b) => highest.get(b) - highest.get(a));
    const rest = order.slice(shownSeries);
    const shown = order
      .slice(0, shownSeries)
      .filter((one) => one.values.some((value) => value !== 0));
    if (rest.length === 0) return shown;
    const values = new Float64Array(this.samples);
    for (const one of rest) one.values.forEach((value, sample) => (values[sample] += value));
    return [...shown, { name: `${rest.length} others`, values, isRest: true }];
  }

  get highestSample() {
    let highest = 0;
    for (let sample = 1; sample < this.samples; ++sample)
      if (this.totals[sample] > this.totals[highest]) highest = sample;
    return highest;
  }

  phaseAt(sample) {
    return this.phases.find(({ first, count }) => sample >= first && sample < first + count);
  }

  /** Samples from `first` to `last` to draw: where there are too many, the highest of each few. */
  drawn(first, last, most) {
    const count = last - first + 1;
    const buckets = Math.min(count, Math.max(2, most));
    const chosen = [];
    for (let bucket = 0; bucket < buckets; ++bucket) {
      let best = first + Math.floor((bucket * count) / buckets);
      const end = first + Math.floor(((bucket + 1) * count) / buckets);
      for (let sample = best + 1; sample < end; ++sample)
        if (this.totals[sample] > this.totals[best]) best = sample;
      chosen.push(best);
    }
    return chosen;
  }

  /** By label: what the heap held when it began, at most, when it ended, and how much it rose. */
  byLabel() {
    const labels = new Map();
    for (const phase of this.phases) {
      const before = phase.first >= 1 ? this.totals[Math.floor(phase.first) - 1] : 0;
      const all = labels.get(phase.label);
      const rise = Math.max(0, phase.peak - before);
      if (!all) labels.set(phase.label, { ...phase, times: 1, rise });
      else
        Object.assign(all, {
          times: all.times + 1,
          peak: Math.max(all.peak, phase.peak),
          end: phase.end,
          rise: all.rise + rise,
        });
    }
    return labels;
  }
}
